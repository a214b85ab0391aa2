// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"

#include <json/value.h>

#include <strutil.h>

#include <algorithm>

namespace calls
{

namespace
{

/** The document of the inputs as a tree of this thread: reading a tree may change it. */
Json::Value tree(Inputs& inputs)
{
    Json::Value read;
    loadJsonDoc(inputs.document.c_str(), read);
    return read;
}

template <typename Number, typename Read>
std::string number(const Read& read)
{
    Number found{};
    return read(&found) == 1 ? std::to_string(found) : "none";
}

template <typename Read>
std::string text(const Read& read)
{
    char* found = nullptr;
    return read(&found) == 1 ? taken(found) : "none";
}

template <typename Read>
std::string list(const Read& read)
{
    char** found = nullptr;
    return read(&found) == 1 ? taken(found) : "none";
}

/** What @p change makes of the document {"a":1}. */
template <typename Change>
std::string changed(const Change& change)
{
    char* document = support::heapText(R"({"a":1})").release();
    const bool succeeded = change(&document) == 1;
    return (succeeded ? "" : "refused: ") + taken(document);
}

} // namespace

std::vector<Call> documentCalls()
{
    return {
        {{"bmcoauth_last_refusal", "bmcoauth_rule_name"},
         "json.member-missing absent",
         [](Inputs& /*inputs*/) -> std::string {
             bool value = false;
             static_cast<void>(get_value_bool("{}", "absent", &value));
             bmcoauth_refusal refusal{};
             static_cast<void>(bmcoauth_last_refusal(&refusal, sizeof refusal));
             return std::string{bmcoauth_rule_name(refusal.rule)} + " " +
                    static_cast<const char*>(refusal.subject);
         }},
        {{"oauthErro_toStr(oauthError)"},
         "invalid_request",
         [](Inputs&) -> std::string {
             return oauthErro_toStr(OAUTH_INVALID_REQUEST);
         }},
        {{"write_oauth_error"},
         R"({"error":"invalid_request","error_description":"d","error_resolution":"r",)"
         R"("error_uri":"u"})",
         [](Inputs&) {
             return taken(write_oauth_error(OAUTH_INVALID_REQUEST, "d", "r", "u"));
         }},

        {{"set_char_array", "free_char_array"},
         "one,two",
         [](Inputs& in) {
             return taken(set_char_array(in.texts));
         }},
        {{"o2_ff_malloc", "o2_ff_realloc"},
         "a block",
         [](Inputs&) -> std::string {
             const HeapText block{static_cast<char*>(
                 o2_ff_realloc(o2_ff_malloc(10, "caller", 1), 1000, "caller", 1))};
             return block ? "a block" : "none";
         }},
        {{"o2_ff_calloc"},
         "empty",
         [](Inputs&) -> std::string {
             const HeapText block{static_cast<char*>(o2_ff_calloc(2, 4, "caller", 1))};
             return *block == '\0' ? "empty" : "not empty";
         }},
        {{"o2_ff_strdup"},
         "text",
         [](Inputs&) {
             return taken(o2_ff_strdup("text", "caller", 1));
         }},
        {{"get_seconds_from_epoch"},
         "86400",
         [](Inputs&) {
             return std::to_string(get_seconds_from_epoch(86400));
         }},
        {{"isDeviceVorn"},
         "1",
         [](Inputs&) {
             return std::to_string(isDeviceVorn());
         }},

        {{"loadJsonDoc(char const*, Json::Value&)",
          "json_fastWriter[abi:cxx11](Json::Value const&)"},
         R"({"flag":true,"list":["a","b"],"name":"value","number":7,"objects":[{"a":1}]})",
         [](Inputs& in) {
             return json_fastWriter(tree(in));
         }},
        {{"json_to_char(Json::Value&, char const*, char**)"},
         "value",
         [](Inputs& in) {
             Json::Value doc = tree(in);
             return text([&](char** out) { return json_to_char(doc, "name", out); });
         }},
        {{"json_to_char_array(Json::Value&, char const*, char***)"},
         "a,b",
         [](Inputs& in) {
             Json::Value doc = tree(in);
             return list([&](char*** out) { return json_to_char_array(doc, "list", out); });
         }},
        {{"json_to_bool(Json::Value&, char const*, bool*)"},
         "1",
         [](Inputs& in) {
             Json::Value doc = tree(in);
             return number<bool>([&](bool* out) { return json_to_bool(doc, "flag", out); });
         }},
        {{"json_to_uint(Json::Value&, char const*, unsigned int*)"},
         "7",
         [](Inputs& in) {
             Json::Value doc = tree(in);
             return number<unsigned int>(
                 [&](auto* out) { return json_to_uint(doc, "number", out); });
         }},
        {{"json_to_uint64(Json::Value&, char const*, unsigned long long*)"},
         "7",
         [](Inputs& in) {
             Json::Value doc = tree(in);
             return number<unsigned long long>(
                 [&](auto* out) { return json_to_uint64(doc, "number", out); });
         }},
        {{"json_to_obj(Json::Value&, char const*, char**)"},
         R"({"a":1})",
         [](Inputs& in) {
             Json::Value doc;
             doc["object"] = tree(in)["objects"][0];
             return text([&](char** out) { return json_to_obj(doc, "object", out); });
         }},
        {{"json_to_obj_array(Json::Value&, char const*, char***)"},
         R"({"a":1})",
         [](Inputs& in) {
             Json::Value doc = tree(in);
             return list([&](char*** out) { return json_to_obj_array(doc, "objects", out); });
         }},
        {{"replaceDoc(char**, Json::Value const&)"},
         R"({"flag":true,"list":["a","b"],"name":"value","number":7,"objects":[{"a":1}]})",
         [](Inputs& in) {
             return changed([&](char** document) { return replaceDoc(document, tree(in)); });
         }},
        {{"update(Json::Value&, Json::Value&)"},
         R"({"b":1,"flag":true,"list":["a","b"],"name":"value","number":7,"objects":[{"a":1}]})",
         [](Inputs& in) {
             Json::Value destination;
             destination["b"] = 1;
             Json::Value source = tree(in);
             update(destination, source);
             return json_fastWriter(destination);
         }},

        {{"get_value_char"},
         "value",
         [](Inputs& in) {
             return text(
                 [&](char** out) { return get_value_char(in.document.c_str(), "name", out); });
         }},
        {{"get_value_chararray"},
         "a,b",
         [](Inputs& in) {
             return list([&](char*** out) {
                 return get_value_chararray(in.document.c_str(), "list", out);
             });
         }},
        {{"get_value_objarray"},
         R"({"a":1})",
         [](Inputs& in) {
             return list([&](char*** out) {
                 return get_value_objarray(in.document.c_str(), "objects", out);
             });
         }},
        {{"get_value_bool"},
         "1",
         [](Inputs& in) {
             return number<bool>(
                 [&](bool* out) { return get_value_bool(in.document.c_str(), "flag", out); });
         }},
        {{"get_value_uint"},
         "7",
         [](Inputs& in) {
             return number<unsigned int>(
                 [&](auto* out) { return get_value_uint(in.document.c_str(), "number", out); });
         }},
        {{"set_value_char"},
         R"({"a":1,"b":"text"})",
         [](Inputs&) {
             return changed([](char** document) { return set_value_char(document, "b", "text"); });
         }},
        {{"set_value_chararray"},
         R"({"a":1,"b":["one","two"]})",
         [](Inputs& in) {
             return changed(
                 [&](char** document) { return set_value_chararray(document, "b", in.texts); });
         }},
        {{"merge_doc"},
         R"({"a":1,"flag":true,"list":["a","b"],"name":"value","number":7,"objects":[{"a":1}]})",
         [](Inputs& in) {
             return changed(
                 [&](char** document) { return merge_doc(document, in.document.c_str()); });
         }},

        {{"set_handshake_payload", "free_handshake_payload", "write_handshake_payload"},
         R"({"list":["a","b"],"name":"value"})",
         [](Inputs& in) {
             return written(PayloadPtr{set_handshake_payload(in.parameters)}.get());
         }},
        {{"parse_handshake_payload"},
         R"({"a":"1","b":["2","3"]})",
         [](Inputs&) {
             return written(
                 PayloadPtr{parse_handshake_payload(R"({"b":["2","3"],"a":"1"})")}.get());
         }},
        {{"get_handshake_payload_paramValue"},
         "value",
         [](Inputs& in) {
             std::string value;
             return get_handshake_payload_paramValue(in.parameters, "NAME", value) ? value : "none";
         }},
        {{"getKeyNames"},
         "flag,list,name,number,objects",
         [](Inputs& in) {
             return list([&](char*** out) {
                 return getKeyNames(in.document.c_str(),
                                    static_cast<unsigned int>(in.document.size()), out);
             });
         }},
        {{"getChallengeValue(HandshakePayload*, char const*, char*, unsigned int)"},
         "nonce",
         [](Inputs& in) -> std::string {
             std::array<char, 16> buffer{};
             return getChallengeValue(in.challenge, "v", buffer.data(), buffer.size())
                        ? buffer.data()
                        : "none";
         }},
        {{"getChallengeValueArray(HandshakePayload*, char const*, char***)"},
         "hotp-1.0,software_id_cert-1.0",
         [](Inputs& in) {
             char** raw = nullptr;
             const bool found = getChallengeValueArray(in.challenge, "t", &raw);
             const support::StringArray types{raw};
             return found ? show(types.get()) : "none";
         }},
        {{"create_handshake_types_copy(char**, unsigned int*)",
          "free_handshake_types_copy(char**)"},
         "2: hotp-1.0,software_id_cert-1.0",
         [](Inputs& in) {
             unsigned int count = 0;
             const std::unique_ptr<char*, Releaser<free_handshake_types_copy>> copy{
                 create_handshake_types_copy(in.types, &count)};
             return std::to_string(count) + ": " + show(copy.get());
         }},

        {{"copyReplace"},
         "two",
         [](Inputs& in) {
             char* replaced = support::heapText("old").release();
             copyReplace(&replaced, in.texts[1]);
             return taken(replaced);
         }},
        {{"copyAppendArray", "freeStrArray"},
         "one,two",
         [](Inputs& in) {
             char** array = nullptr;
             copyAppendArray(&array, in.texts[0]);
             copyAppendArray(&array, in.texts[1]);
             std::string shown = show(array);
             freeStrArray(&array);
             return shown;
         }},
        {{"splitString"},
         "a,b",
         [](Inputs&) {
             return taken(splitString("a b", " "));
         }},
        {{"cleanPrint"},
         "text",
         [](Inputs&) {
             const HeapText text = support::heapText("text");
             cleanPrint(text.get());
             return show(text);
         }},
    };
}

} // namespace calls
