// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/hostile.hpp"
#include "support/lists.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"
#include "support/tokens.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <json/value.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using support::HeapText;
using support::PayloadPtr;
using support::Releaser;

namespace
{

using Authorize = std::unique_ptr<AuthorizeRequest, Releaser<free_authorize_request>>;
using Answer = std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>>;
using Register = std::unique_ptr<RegisterRequest, Releaser<free_register_request>>;
using Oidc = std::unique_ptr<OidcRegisterResponse, Releaser<free_oidc_register_response>>;

bool readsDocument(const std::string& text)
{
    Json::Value document;
    return loadJsonDoc(text.c_str(), document);
}

bool readsMember(const std::string& text)
{
    char* value = nullptr;
    const int result = get_value_char(text.c_str(), "client_id", &value);
    const HeapText owned{value};
    return result == 1;
}

bool readsForChange(const std::string& text)
{
    char* document = support::heapText(text).release();
    const int result = set_value_char(&document, "more", "x");
    const HeapText owned{document};
    if (result != 1)
    {
        EXPECT_STREQ(document, text.c_str());
    }
    return result == 1;
}

bool readsForMerge(const std::string& text)
{
    char* document = support::heapText("{}").release();
    const int result = merge_doc(&document, text.c_str());
    const HeapText owned{document};
    return result == 1;
}

bool readsAuthorizeRequest(const std::string& text)
{
    return Authorize{parse_authorize_request(text.c_str())} != nullptr;
}

bool isAuthorized(const std::string& text)
{
    return HeapText{client_authorize(text.c_str())} != nullptr;
}

bool readsAuthorizeResponse(const std::string& text)
{
    return Answer{parse_authorize_response(text.c_str())} != nullptr;
}

bool readsRegisterRequest(const std::string& text)
{
    return Register{parse_register_request(text.c_str())} != nullptr;
}

bool readsOidcAnswer(const std::string& text)
{
    return Oidc{parse_oidc_register_response(text.c_str())} != nullptr;
}

bool readsMessage(const std::string& text)
{
    return PayloadPtr{parse_handshake_payload(text.c_str())} != nullptr;
}

bool readsNames(const std::string& text)
{
    char** names = nullptr;
    const int result = getKeyNames(text.c_str(), static_cast<unsigned int>(text.size()), &names);
    const support::StringArray owned{names};
    return result == 1;
}

bool readsKey(const std::string& text)
{
    jwk* key = oauth2_parse_jwk(text.c_str());
    const bool read = key != nullptr;
    free_jwk(&key);
    return read;
}

bool readsKeyForImport(const std::string& text)
{
    char* document = support::heapText(text).release();
    const int result = appendPublicKey(&document);
    const HeapText owned{document};
    return result == 1;
}

bool readsSecrets(const std::string& text)
{
    const PayloadPtr challenge{parse_handshake_payload(R"({"T":"type","M":"1","C":"1"})")};
    HandshakePayload* none = nullptr;
    HandshakePayload* response = nullptr;
    const bool made = generateHandshakeResponse(challenge.get(), text.c_str(),
                                                static_cast<unsigned int>(text.size()), &none,
                                                &response, nullptr, 0);
    const PayloadPtr owned{response};
    return made;
}

/** The text as a header in front of any payload. */
bool readsHeader(const std::string& text)
{
    const std::string token = tokens::base64Url(text) + ".e30.AAAA";
    JWTHeader* header = nullptr;
    const int result = get_jwt_header(token.c_str(), &header);
    const tokens::Header owned{header};
    return result == 1;
}

bool readsPayload(const std::string& text)
{
    const std::string token = "e30." + tokens::base64Url(text) + ".AAAA";
    JWTPayload* payload = nullptr;
    const int result = get_jwt_payload(token.c_str(), &payload);
    const tokens::Payload owned{payload};
    return result == 1;
}

/** The text as a payload that the service has signed. */
bool isValidToken(const std::string& text)
{
    const std::string token = tokens::handmade(R"({"alg":"ES256","typ":"JWT"})", text);
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int result = validateJWT(token.c_str(), tokens::serviceKey().data(),
                                   tokens::serviceKey().length(), &header, &payload);
    const tokens::Header headerOwner{header};
    const tokens::Payload payloadOwner{payload};
    return result == 1;
}

/** Whether the text of "xidp" says anything. */
bool grantsRights(const std::string& text)
{
    std::string claim = text;
    JWTPayload payload{};
    payload.xidp = claim.data();
    return get_xidp_privileges(&payload, nullptr) != 0;
}

/** Each reader of text from outside, with a text that it takes. */
struct TextReader
{
    const char* name;
    bool (*reads)(const std::string& text);
    std::string accepted;
    /** The rule by which it refuses every text that is not a document; null: that of JSON. */
    const char* rule = nullptr;
    /** The rule by which it refuses the empty text; null: as any other. */
    const char* ruleOfEmpty = nullptr;
};

const std::vector<TextReader>& readers()
{
    static const std::string request =
        R"({"client_id":"c","client_secret":"s","state":"x","refresh_token":"r"})";
    static const std::string key =
        R"({"crv":"P-256","kty":"EC","x":"MKBCTNIcKUSDii11ySs3526iDZ8AiTo7Tu6KPAqv7D4",)"
        R"("y":"4Etl6SRW2YiLUrN5vfvVHuhp7x8PxltmWWlbbM4IFyM"})";
    static const std::vector<TextReader> list = {
        {"loadJsonDoc", readsDocument, request},
        {"get_value_char", readsMember, request},
        {"set_value_char", readsForChange, request},
        {"merge_doc", readsForMerge, request},
        {"parse_authorize_request", readsAuthorizeRequest, request},
        {"client_authorize", isAuthorized, request},
        {"parse_authorize_response", readsAuthorizeResponse,
         R"({"access_token":"a","expires_in":"1","refresh_token":"r","state":"s","token_type":"t"})"},
        {"parse_register_request", readsRegisterRequest,
         R"({"client_name":"n","redirect_uri":["u"],"software_id":"i"})"},
        {"parse_oidc_register_response", readsOidcAnswer, R"({"client_id":"c"})"},
        {"parse_handshake_payload", readsMessage, R"({"R":"94287082"})"},
        {"getKeyNames", readsNames, R"({"R":"94287082"})"},
        {"oauth2_parse_jwk", readsKey, key},
        {"appendPublicKey", readsKeyForImport, key},
        {"generateHandshakeResponse", readsSecrets, R"({"type":["secret"]})", nullptr,
         "handshake.keys"},
        {"get_jwt_header", readsHeader, R"({"alg":"ES256"})", nullptr, "base64.malformed"},
        {"get_jwt_payload", readsPayload, R"({"sub":"s"})", nullptr, "base64.malformed"},
        {"validateJWT", isValidToken,
         R"({"exp":"0xffffffffff","iat":"0","iss":"i","jti":"j","nbf":"0","sub":"s"})", nullptr,
         "base64.malformed"},
        {"get_xidp_privileges", grantsRights, R"({"*":["L"]})", "privileges.claim"},
    };
    return list;
}

/** @p accepted with a further member in front, whose value is this JSON text. */
std::string with(const std::string& accepted, const std::string& value)
{
    return R"({"!":)" + value + "," + accepted.substr(1);
}

/** Expects that @p reader refuses @p text by @p rule of JSON, or by its own. */
void expectRefused(const char* rule, const TextReader& reader, const std::string& text)
{
    if (reader.rule != nullptr)
    {
        rule = reader.rule;
    }
    if (text.empty() && reader.ruleOfEmpty != nullptr)
    {
        rule = reader.ruleOfEmpty;
    }
    EXPECT_REFUSED(rule, reader.reads(text));
}

/** Whether this reader has rules for members that it does not know: a handshake message is a flat
 *  list of texts. */
bool takesAnyMember(const TextReader& reader)
{
    return reader.reads != readsMessage;
}

TEST(Documents, AreReadOrRefusedByEveryReader)
{
    constexpr std::size_t longest = 64 * 1024;
    for (const TextReader& reader : readers())
    {
        SCOPED_TRACE(reader.name);
        EXPECT_TRUE(reader.reads(reader.accepted));
        for (const support::HostileText& hostile : support::hostileTexts())
        {
            // The long ones are with each reader's own tests. Any root but null has names, if only
            // none.
            if (hostile.text.size() <= longest && reader.reads != readsNames)
            {
                SCOPED_TRACE(hostile.name);
                expectRefused(support::hostileRule(hostile.name).c_str(), reader, hostile.text);
            }
        }
        for (std::size_t length = 0; length < reader.accepted.size(); ++length)
        {
            SCOPED_TRACE(length);
            expectRefused("json.syntax", reader, reader.accepted.substr(0, length));
        }
        EXPECT_TRUE(reader.reads(reader.accepted));
    }
}

TEST(Documents, AreNestedAsDeepAsReadersGo)
{
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    const auto nestedObjects = [](std::size_t depth) {
        std::string text;
        for (std::size_t i = 0; i < depth; ++i)
        {
            text += R"({"a":)";
        }
        return text + "1" + std::string(depth, '}');
    };
    for (const TextReader& reader : readers())
    {
        SCOPED_TRACE(reader.name);
        if (takesAnyMember(reader))
        {
            EXPECT_TRUE(reader.reads(with(reader.accepted, nested(255))));
            EXPECT_TRUE(reader.reads(with(reader.accepted, nestedObjects(254))));
        }
        for (const std::size_t depth : {256U, 1001U, 5000U})
        {
            expectRefused("json.nesting", reader, with(reader.accepted, nested(depth)));
            expectRefused("json.nesting", reader, with(reader.accepted, nestedObjects(depth)));
            expectRefused("json.nesting", reader, std::string(depth, '[') + reader.accepted);
        }
    }
}

TEST(Documents, HoldNumbersOfAnySize)
{
    for (const TextReader& reader : readers())
    {
        if (!takesAnyMember(reader))
        {
            continue;
        }
        SCOPED_TRACE(reader.name);
        for (const char* number :
             {"0", "-1", "4294967296", "18446744073709551616", "-9223372036854775809", "1e-400",
              "0.1e1", "123456789012345678901234567890"})
        {
            EXPECT_TRUE(reader.reads(with(reader.accepted, number))) << number;
        }
        EXPECT_TRUE(reader.reads(with(reader.accepted, std::string(300, '9'))));
        EXPECT_TRUE(reader.reads(with(reader.accepted, "0." + std::string(10000, '9'))));
        for (const char* none :
             {"1e", "1.e5.", "--1", "0x10", "1_000", "NaN", "Infinity", "1,,", "e5"})
        {
            SCOPED_TRACE(none);
            expectRefused("json.syntax", reader, with(reader.accepted, none));
        }
        // More than the largest double: what becomes of it is the JSON library's to say, as long as
        // it is the same for all.
        EXPECT_EQ(reader.reads(with(reader.accepted, "1e400")), readsDocument(R"({"a":1e400})"));
        EXPECT_EQ(reader.reads(with(reader.accepted, std::string(10000, '9'))),
                  readsDocument(R"({"a":)" + std::string(10000, '9') + "}"));
    }
}

TEST(Documents, AreUtf8AsFarAsAnybodyLooks)
{
    // Bytes that are not UTF-8 are kept, and a surrogate needs its other half.
    const std::vector<std::pair<const char*, bool>> texts = {
        {"\"\xc3\xa4\"", true},      {"\"\xff\xfe\"", true},         {"\"\xc0\xaf\"", true},
        {"\"\xed\xa0\x80\"", true},  {"\"\xf4\x90\x80\x80\"", true}, {"\"\xe2\x82\"", true},
        {"\"\x80\"", true},          {"\"\x7f\x01\"", true},         {R"("\ud83d\ude00")", true},
        {R"("\ud83d")", false},      {R"("\ud83d x")", false},       {R"("\ud83d\u")", false},
        {R"("\ud83d\ud83")", false}, {R"("\u00")", false},           {R"("\u00zz")", false},
        {R"("\x41")", false},        {R"("\U00000041")", false},     {R"("\u0000")", true},
    };
    for (const TextReader& reader : readers())
    {
        SCOPED_TRACE(reader.name);
        for (const auto& [value, read] : texts)
        {
            SCOPED_TRACE(value);
            if (read)
            {
                EXPECT_TRUE(reader.reads(with(reader.accepted, value)));
            }
            else
            {
                expectRefused("json.syntax", reader, with(reader.accepted, value));
            }
        }
    }
}

TEST(Documents, HaveNoOtherEncoding)
{
    for (const TextReader& reader : readers())
    {
        SCOPED_TRACE(reader.name);
        std::string utf16;
        for (const char c : reader.accepted)
        {
            utf16 += {c, '\0'};
        }
        // A C text ends at its first zero byte, before the length that is told with it.
        const char* const rule = reader.reads == readsNames || reader.reads == readsSecrets
                                     ? "argument.length"
                                     : "json.syntax";
        expectRefused(rule, reader, utf16);
        expectRefused(rule, reader, "\xff\xfe" + utf16);
        expectRefused("json.syntax", reader, "\xfe\xff" + reader.accepted);
        expectRefused("json.syntax", reader, "\xef\xbb" + reader.accepted);
        expectRefused("json.syntax", reader, "+ADw-" + reader.accepted);
        expectRefused("json.syntax", reader, "\xef\xbb\xbf\xef\xbb\xbf" + reader.accepted);
        // The mark of UTF-8 itself is the JSON library's to pass over or to refuse: everywhere alike.
        EXPECT_EQ(reader.reads("\xef\xbb\xbf" + reader.accepted), readsDocument("\xef\xbb\xbf{}"));
        // Text in front of a document is not skipped.
        expectRefused("json.syntax", reader, ")]}'\n" + reader.accepted);
        expectRefused("json.syntax", reader, "callback(" + reader.accepted + ")");
        EXPECT_TRUE(reader.reads(" \t\r\n" + reader.accepted + " \t\r\n"));
    }
}

// Of two members with one name, the last one counts. One place decides that for all readers. A
// program that reads the text before us and takes the first one reads another document.
TEST(Documents, TakeTheLastOfMembersWithOneName)
{
    const Authorize request{parse_authorize_request(
        R"({"client_id":"one","client_id":"two","client_secret":"s","state":"x",)"
        R"("handshake_response":{"R":"1","R":"2"},"kest_policy_auth":{"p":"1","p":"2"}})")};
    ASSERT_NE(request, nullptr);
    EXPECT_STREQ(request->client_id, "two");
    EXPECT_EQ(support::parameters(request->handshake), (support::Parameters{{"R", {"2"}}}));
    EXPECT_EQ(support::pairs(request->policy), (support::Pairs{{"p", "2"}}));
    EXPECT_REFUSED(
        "document.member",
        readsAuthorizeRequest(
            R"({"client_id":"c","client_id":5,"client_secret":"s","state":"x","refresh_token":"r"})"));

    const Answer answer{parse_authorize_response(
        R"({"access_token":"a","access_token":"b","expires_in":"1","refresh_token":"r",)"
        R"("state":"s","token_type":"t"})")};
    ASSERT_NE(answer, nullptr);
    EXPECT_STREQ(answer->access_token, "b");

    const Register registration{parse_register_request(
        R"({"redirect_uri":["https://one/"],"redirect_uri":["https://two/"],"client_name":"n",)"
        R"("software_id":"i","handshake_challenge":{"T":["a"],"T":["b"]}})")};
    ASSERT_NE(registration, nullptr);
    EXPECT_EQ(support::texts(registration->redirect_uri),
              (std::vector<std::string>{"https://two/"}));
    EXPECT_EQ(support::parameters(registration->handshake_challenge),
              (support::Parameters{{"T", {"b"}}}));
    // Names that differ in case are two members.
    EXPECT_REFUSED(
        "registration.challenge",
        readsRegisterRequest(R"({"redirect_uri":["u"],"client_name":"n","software_id":"i",)"
                             R"("handshake_challenge":{"T":["a"],"t":["b"]}})"));

    const Oidc oidc{parse_oidc_register_response(
        R"({"client_id":"one","client_id":"two","client_id_issued_at":1,"client_id_issued_at":2})")};
    ASSERT_NE(oidc, nullptr);
    EXPECT_STREQ(oidc->client_id, "two");
    EXPECT_STREQ(oidc->client_id_issued_at, "2");

    // What carries an envelope is a message as any other.
    const PayloadPtr message{parse_handshake_payload(
        R"({"HMAC":"1","HMAC":"2","encrypted_sslcert":"a","encrypted_sslcert":"b","iv":"3"})")};
    EXPECT_EQ(support::parameters(message.get()),
              (support::Parameters{{"HMAC", {"2"}}, {"encrypted_sslcert", {"b"}}, {"iv", {"3"}}}));

    char* document = support::heapText(R"({"a":"1","b":"x","a":"2"})").release();
    EXPECT_EQ(set_value_char(&document, "c", "y"), 1);
    const HeapText owned{document};
    EXPECT_STREQ(document, R"({"a":"2","b":"x","c":"y"})");
}

TEST(Documents, KeepNamesWithZeroBytesApart)
{
    for (const TextReader& reader : readers())
    {
        SCOPED_TRACE(reader.name);
        // The same name and a zero byte: another member, which changes nothing.
        const std::string name = reader.accepted.substr(2, reader.accepted.find('"', 2) - 2);
        EXPECT_TRUE(reader.reads(R"({")" + name + R"(\u0000":"x",)" + reader.accepted.substr(1)));
    }
    // Nor does it stand in for the one that is asked for.
    EXPECT_REFUSED("document.member", readsOidcAnswer(R"({"client_id\u0000":"c"})"));
    EXPECT_REFUSED("token.member", readsHeader(R"({"alg\u0000":"ES256"})"));
    EXPECT_REFUSED("json.member-missing", readsMember(R"({"client_id\u0000":"c"})"));
    EXPECT_REFUSED("handshake.secret", readsSecrets(R"({"type\u0000":["secret"]})"));
    // No right is not a failure.
    EXPECT_REFUSED("nothing noted", grantsRights(R"({"*\u0000":["L"]})"));
    EXPECT_REFUSED("nothing noted", grantsRights(R"({"*":["L\u0000"]})"));
    EXPECT_REFUSED(
        "document.member",
        readsAuthorizeRequest(
            R"({"client_id\u0000":"c","client_secret":"s","state":"x","refresh_token":"r"})"));
    EXPECT_REFUSED("registration.redirect-uri",
                   readsRegisterRequest(
                       R"({"redirect_uri\u0000":["u"],"client_name":"n","software_id":"i"})"));
}

} // namespace
