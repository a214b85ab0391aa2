// SPDX-License-Identifier: Apache-2.0
#include "secrets/secrets.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <json/value.h>

using support::HeapText;
using support::StringArray;
using support::TextList;

namespace secrets
{

namespace
{

const std::string secret = someSecret;

/** A document such as a service keeps, with a secret in it. */
const std::string stored = R"({"clients":[{"client_secret":")" + secret +
                           R"("}],"enabled":true,"list":[")" + secret +
                           R"("],"number":5,"secret":")" + secret + R"("})";

Secrets edits(const std::function<int(char**)>& edit, Watch& watch)
{
    HeapText owner = support::heapText(stored);
    char* text = owner.release();
    EXPECT_EQ(watch.call([&] { return edit(&text); }), 1);
    owner.reset(text);
    EXPECT_NE(std::string{text}.find(secret), std::string::npos);
    return {secret};
}

template <typename Out>
Secrets reads(Watch& watch, int (*reader)(const char*, const char*, Out*), const char* name,
              Out& out)
{
    EXPECT_EQ(watch.call([&] { return reader(stored.c_str(), name, &out); }), 1);
    return {secret};
}

const Table rows{
    {"get_value_char", "a secret",
     [](Watch& watch) {
         char* text = nullptr;
         Secrets secrets = reads(watch, get_value_char, "secret", text);
         const HeapText owner{text};
         return secrets;
     }},
    {"get_value_chararray", "secrets",
     [](Watch& watch) {
         char** array = nullptr;
         Secrets secrets = reads(watch, get_value_chararray, "list", array);
         const StringArray owner{array};
         return secrets;
     }},
    {"get_value_objarray", "clients",
     [](Watch& watch) {
         char** array = nullptr;
         Secrets secrets = reads(watch, get_value_objarray, "clients", array);
         const StringArray owner{array};
         return secrets;
     }},
    {"get_value_bool", "another member",
     [](Watch& watch) {
         bool flag = false;
         return reads(watch, get_value_bool, "enabled", flag);
     }},
    {"get_value_uint", "another member",
     [](Watch& watch) {
         unsigned int number = 0;
         return reads(watch, get_value_uint, "number", number);
     }},
    {"set_value_char", "a secret",
     [](Watch& watch) {
         return edits([](char** text) { return set_value_char(text, "new", someSecret); }, watch);
     }},
    {"set_value_char", "a secret in the place of another",
     [](Watch& watch) {
         return edits([](char** text) { return set_value_char(text, "secret", "other"); }, watch);
     }},
    {"set_value_char", "a member that goes",
     [](Watch& watch) {
         return edits([](char** text) { return set_value_char(text, "secret", nullptr); }, watch);
     }},
    {"set_value_chararray", "secrets",
     [](Watch& watch) {
         TextList values{secret, secret};
         Secrets secrets =
             edits([&](char** text) { return set_value_chararray(text, "list", values); }, watch);
         EXPECT_EQ(support::texts(values), (std::vector<std::string>{secret, secret}));
         return secrets;
     }},
    {"merge_doc", "a secret",
     [](Watch& watch) {
         const std::string other = R"({"secret":")" + secret + R"("})";
         return edits([&](char** text) { return merge_doc(text, other.c_str()); }, watch);
     }},
    {"replaceDoc", "a secret",
     [](Watch& watch) {
         Json::Value tree;
         tree["secret"] = secret;
         return edits([&](char** text) { return replaceDoc(text, tree); }, watch);
     }},
    {"json_fastWriter", "a secret",
     [](Watch& watch) {
         Json::Value tree;
         tree["secret"] = secret;
         const std::string text = watch.call([&] { return json_fastWriter(tree); });
         EXPECT_NE(text.find(secret), std::string::npos);
         return Secrets{secret};
     }},
    {"loadJsonDoc", "a secret",
     [](Watch& watch) {
         Json::Value tree;
         EXPECT_TRUE(watch.call([&] { return loadJsonDoc(stored.c_str(), tree); }));
         return Secrets{secret};
     }},
};

} // namespace

} // namespace secrets
