// SPDX-License-Identifier: Apache-2.0
#include "cli/refusal.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

/** A rule in words: a sentence, and what to do about it. */
struct Wording
{
    int rule;
    const char* sentence;
    const char* hint = "";
};

constexpr auto wordings = std::to_array<Wording>({
    {BMCOAUTH_RULE_ARGUMENT_NULL, "an argument is missing"},
    {BMCOAUTH_RULE_ARGUMENT_LENGTH, "the length of an argument is wrong"},
    {BMCOAUTH_RULE_ARGUMENT_RANGE, "a number has no meaning here"},
    {BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE, "a text holds a zero byte"},
    {BMCOAUTH_RULE_ARGUMENT_EMPTY, "a text or a list is empty"},
    {BMCOAUTH_RULE_ARGUMENT_CONFLICT, "two arguments say the same thing"},

    {BMCOAUTH_RULE_MEMORY_EXHAUSTED, "memory ran out"},
    {BMCOAUTH_RULE_RANDOM_DEVICE, "the random device cannot be opened or read",
     "see bmcoauth doctor"},
    {BMCOAUTH_RULE_CLOCK_UNREADABLE, "the clock cannot be read", "see bmcoauth doctor"},

    {BMCOAUTH_RULE_FILE_UNREADABLE, "the file cannot be read"},
    {BMCOAUTH_RULE_FILE_UNWRITABLE, "the file cannot be written"},

    {BMCOAUTH_RULE_JSON_SYNTAX, "the text is not JSON"},
    {BMCOAUTH_RULE_JSON_NESTING, "the text nests more than 256 levels"},
    {BMCOAUTH_RULE_JSON_ROOT, "the JSON text is not an object"},
    {BMCOAUTH_RULE_JSON_MEMBER_MISSING, "a member is absent or null"},
    {BMCOAUTH_RULE_JSON_MEMBER_TYPE, "a member has another type"},

    {BMCOAUTH_RULE_BASE64_MALFORMED, "the text is not Base64, or empty"},
    {BMCOAUTH_RULE_BASE64_LENGTH, "the text or the data is too long for Base64"},

    {BMCOAUTH_RULE_KEY_ENCODING, "there is no readable key",
     "private keys are files in PEM form, not encrypted: see bmcoauth key convert"},
    {BMCOAUTH_RULE_KEY_KIND, "the key is not an EC key"},
    {BMCOAUTH_RULE_KEY_CURVE, "the key is on another curve"},
    {BMCOAUTH_RULE_KEY_RANGE, "the private number is zero or not below the order of the curve"},
    {BMCOAUTH_RULE_KEY_UNSOUND, "the parts of the key do not belong together"},
    {BMCOAUTH_RULE_KEY_POINT, "the public point is not on the curve"},

    {BMCOAUTH_RULE_JWK_KIND, "\"kty\" is neither EC nor RSA"},
    {BMCOAUTH_RULE_JWK_NUMBER, "a number of the key is absent or malformed"},
    {BMCOAUTH_RULE_JWK_POINT, "the coordinates are not a point of the curve"},
    {BMCOAUTH_RULE_JWK_EMPTY, "the key holds no member that is known"},
    {BMCOAUTH_RULE_JWK_MEMBER, "the key lacks a member"},

    {BMCOAUTH_RULE_CERTIFICATE_MISSING, "there is no certificate"},
    {BMCOAUTH_RULE_CERTIFICATE_ENCODING, "the text is not a certificate"},
    {BMCOAUTH_RULE_CERTIFICATE_NAME, "the common name is another one, or absent",
     "names are compared regardless of case; a name longer than 17 bytes never matches"},
    {BMCOAUTH_RULE_CERTIFICATE_NAME_EMPTY, "the common name is empty"},

    {BMCOAUTH_RULE_CHAIN_ROOT_MISSING, "a factory root cannot be opened, or holds no certificate",
     "both roots must be in /etc/default/certs: see bmcoauth doctor"},
    {BMCOAUTH_RULE_CHAIN_UNTRUSTED, "no chain leads to a trusted factory root",
     "validity is judged as of 1 January 2035; unless /etc/vorn_fw is there, only the root of "
     "production counts"},
    {BMCOAUTH_RULE_CHAIN_ENDS,
     "the first certificate, whose name and key count, is not the last one, "
     "which is verified",
     "expected: device, intermediates, device"},
    {BMCOAUTH_RULE_CHAIN_UNSUPPORTED, "this entry point accepts no chain"},

    {BMCOAUTH_RULE_ENVELOPE_IV, "the IV is absent or not 32 hexadecimal digits"},
    {BMCOAUTH_RULE_ENVELOPE_MAC_MISSING, "there is no MAC"},
    {BMCOAUTH_RULE_ENVELOPE_MAC_WRONG, "the MAC is not that of the ciphertext",
     "sealed with other keys, or altered on the way; --peer is the other party's certificate"},
    {BMCOAUTH_RULE_ENVELOPE_PADDING, "the ciphertext does not decrypt",
     "the MAC fits: the IV is another one, or the sealing side made this ciphertext"},
    {BMCOAUTH_RULE_ENVELOPE_TEXT, "the plaintext holds a zero byte, so it is not a text",
     "no MAC covers the IV: another IV alters the first 16 bytes"},
    {BMCOAUTH_RULE_ENVELOPE_LENGTH, "there is too much to seal or to open"},

    {BMCOAUTH_RULE_TOKEN_PARTS, "the text is not three parts between dots"},
    {BMCOAUTH_RULE_TOKEN_MEMBER, "a header member or claim is absent or not a string",
     "times are strings in tokens of ours; token delegated judges those of other issuers"},
    {BMCOAUTH_RULE_TOKEN_SCOPE, "\"scope\" is not an object of arrays of strings",
     "a text is what other issuers write: token delegated judges such tokens"},
    {BMCOAUTH_RULE_TOKEN_NOT_YET_VALID, "the token's time has not begun",
     "bmcoauth doctor compares the clocks"},
    {BMCOAUTH_RULE_TOKEN_EXPIRED, "the token's time is over",
     "bmcoauth doctor compares the clocks"},
    {BMCOAUTH_RULE_TOKEN_SIGNATURE, "the signature is not that of a trusted key",
     "tokens of ours carry ECDSA signatures as DER: see bmcoauth token convert"},
    {BMCOAUTH_RULE_TOKEN_ALGORITHM, "the algorithm is not one for public keys"},
    {BMCOAUTH_RULE_TOKEN_KEY_NOT_SELECTED, "no trusted key is meant for this token",
     "a key is selected by its alg or kid, or by kty and crv"},
    {BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED,
     "a trusted key is meant for this token, but holds no public key that fits"},
    {BMCOAUTH_RULE_TOKEN_INCOMPLETE, "the token to be written lacks a text"},
    {BMCOAUTH_RULE_TOKEN_EXPIRES_NOW, "the token would expire this very second"},

    {BMCOAUTH_RULE_PRIVILEGES_CLAIM, "the identity provider claim is not an object"},

    {BMCOAUTH_RULE_DOCUMENT_MEMBER, "a member is absent or has another type"},
    {BMCOAUTH_RULE_DOCUMENT_INCOMPLETE, "something that must be written is missing"},
    {BMCOAUTH_RULE_DOCUMENT_PARAMETER, "a member cannot be a parameter",
     "a parameter is a string or an array of strings"},
    {BMCOAUTH_RULE_DOCUMENT_PARAMETER_MISSING, "a parameter is absent, or has no value"},
    {BMCOAUTH_RULE_DOCUMENT_EMPTY, "a list has no entry"},

    {BMCOAUTH_RULE_REGISTRATION_REDIRECT_URI,
     "\"redirect_uri\" is not an array of strings, or empty"},
    {BMCOAUTH_RULE_REGISTRATION_CHALLENGE, "the challenge is not one that this side sends"},
    {BMCOAUTH_RULE_REGISTRATION_HANDSHAKE_TYPES, "\"handshake_types\" is not an array of strings"},
    {BMCOAUTH_RULE_REGISTRATION_KEYS, "an entry of a list of keys is not a key"},
    {BMCOAUTH_RULE_REGISTRATION_LIFETIME, "the expiry is not a number from 0"},
    {BMCOAUTH_RULE_REGISTRATION_UNSUPPORTED, "responses of this form are never given as a record"},

    {BMCOAUTH_RULE_AUTHORIZE_GRANT, "there is neither a handshake response nor a refresh token"},
    {BMCOAUTH_RULE_AUTHORIZE_HANDSHAKE, "the handshake response is not a parameter list"},
    {BMCOAUTH_RULE_AUTHORIZE_POLICY, "a policy entry is not a string"},
    {BMCOAUTH_RULE_AUTHORIZE_SCOPE, "a scope entry lacks its name or its values"},

    {BMCOAUTH_RULE_HANDSHAKE_TYPES, "there is no type to choose or to answer",
     "mode 1 needs the type software_id_cert-1.0, mode 2 another one, mode 3 both; a client's "
     "challenge needs two types or more, one of them for one-time passwords"},
    {BMCOAUTH_RULE_HANDSHAKE_TOKEN, "\"V\", which a certificate proof signs, is absent"},
    {BMCOAUTH_RULE_HANDSHAKE_CERTIFICATE, "there is no certificate to prove", "give --certificate"},
    {BMCOAUTH_RULE_HANDSHAKE_COUNTERS, R"("M" or "C" is absent or not a number from 1)"},
    {BMCOAUTH_RULE_HANDSHAKE_KEYS, "the key document is absent or not a JSON object",
     "give --keys"},
    {BMCOAUTH_RULE_HANDSHAKE_SECRET, "the key document holds no secret for the type"},
    {BMCOAUTH_RULE_HANDSHAKE_PROOF_MISSING, "a proof is missing",
     R"("R" holds a proof for each type in "T")"},
    {BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG, "the proof is not the one that was asked for",
     "the other side has another secret or key, or answers another challenge; there is no window "
     "for counters"},
    {BMCOAUTH_RULE_HANDSHAKE_IV, "the IV of the sealed certificate is absent or not 32 characters "
                                 "long"},
});

/** Whether @p rule means that the machine failed: memory, the random device, the clock, a file.
 *  Without the factory roots nothing is judged either. */
bool isOfTheMachine(int rule)
{
    return (rule >= BMCOAUTH_RULE_MEMORY_EXHAUSTED && rule <= BMCOAUTH_RULE_FILE_UNWRITABLE) ||
           rule == BMCOAUTH_RULE_CHAIN_ROOT_MISSING;
}

/** The members of @p reason besides the rule, as a text. */
std::string detailsOf(const Reason& reason)
{
    std::string details;
    const auto add = [&](const std::string& detail) {
        details += details.empty() ? detail : ", " + detail;
    };
    if (!reason.subject.empty())
    {
        add('"' + reason.subject + '"');
    }
    if (reason.index >= 0)
    {
        add("index " + std::to_string(reason.index));
    }
    if (!reason.saw.empty())
    {
        add("saw " + reason.saw);
    }
    if (!reason.wanted.empty())
    {
        add("wanted " + reason.wanted);
    }
    return details;
}

} // namespace

Reason reasonOf(const Error& error)
{
    bmcoauth_refusal refusal{
        .rule = error.rule(), .index = error.index(), .subject = {}, .saw = {}, .wanted = {}};
    error.subject().copy(refusal.subject, sizeof refusal.subject - 1);
    error.saw().copy(refusal.saw, sizeof refusal.saw - 1);
    error.wanted().copy(refusal.wanted, sizeof refusal.wanted - 1);
    return reasonOf(refusal);
}

Reason reasonOf(const bmcoauth_refusal& refusal)
{
    const char* const name = bmcoauth_rule_name(refusal.rule);
    const auto* const wording = std::ranges::find(wordings, refusal.rule, &Wording::rule);
    const bool known = wording != wordings.end();
    return {.rule = name != nullptr ? name : "rule " + std::to_string(refusal.rule),
            .sentence = known ? wording->sentence : "",
            .hint = known ? wording->hint : "",
            .subject = static_cast<const char*>(refusal.subject),
            .saw = static_cast<const char*>(refusal.saw),
            .wanted = static_cast<const char*>(refusal.wanted),
            .index = refusal.index,
            .machine = isOfTheMachine(refusal.rule)};
}

std::string lineOf(const Reason& reason)
{
    std::string line = reason.rule;
    if (!reason.sentence.empty())
    {
        line += ": " + reason.sentence;
    }
    if (const std::string details = detailsOf(reason); !details.empty())
    {
        line += " (" + details + ")";
    }
    return reason.hint.empty() ? line : line + "; " + reason.hint;
}

void describe(const Reason& reason, Json::Value& document)
{
    document["rule"] = reason.rule;
    if (reason.index >= 0)
    {
        document["index"] = reason.index;
    }
    const std::array<std::pair<const char*, const std::string*>, 3> texts{
        {{"subject", &reason.subject}, {"saw", &reason.saw}, {"wanted", &reason.wanted}}};
    for (const auto& [name, text] : texts)
    {
        if (!text->empty())
        {
            document[name] = *text;
        }
    }
}

Refused::Refused(Exit status, const std::string& message, Json::Value found, bool printed)
    : Stop{status, message}, members{std::move(found)}, alwaysPrinted{printed}
{
}

void refuse(const std::string& what, const Reason& reason, Exit status)
{
    Json::Value members;
    describe(reason, members);
    throw Refused{reason.machine ? Exit::failure : status, what + ": " + lineOf(reason),
                  std::move(members)};
}

Json::Value problemDocument(Exit status, const std::string& reason, Json::Value members)
{
    constexpr std::array<const char*, 5> verdicts{"valid", "failed", "usage", "invalid", "expired"};
    members["verdict"] = verdicts.at(static_cast<std::size_t>(status));
    members["reason"] = reason;
    return members;
}

} // namespace bmcoauth::tool
