// SPDX-License-Identifier: Apache-2.0
#include "inputs.hpp"
#include "show.hpp"
#include "support/lists.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>

using support::certificateRecord;
using support::EcKeyPtr;
using support::ParameterList;
using support::TextList;

namespace faults
{

namespace
{

constexpr const char* certificateType = "software_id_cert-1.0";
constexpr const char* keyDocument = R"({"a1.0":["first secret","second secret"],"b1.0":["third"]})";
constexpr auto keyDocumentLength =
    static_cast<unsigned int>(std::char_traits<char>::length(keyDocument));

// A challenge of each kind, as a server makes it.
ParameterList& passwordChallenge()
{
    static ParameterList list{{"T", {"a1.0"}}, {"M", {"5"}}, {"C", {"77"}}};
    return list;
}

ParameterList& certificateChallenge()
{
    static ParameterList list{{"T", {certificateType}}, {"V", {"a token"}}};
    return list;
}

ParameterList& bothChallenge()
{
    static ParameterList list{
        {"T", {"a1.0", certificateType}}, {"M", {"5"}}, {"C", {"77"}}, {"V", {"a token"}}};
    return list;
}

/** One of a client, which draws M and C itself. */
ParameterList& clientChallenge()
{
    static ParameterList list{{"T", {"a1.0"}}};
    return list;
}

HandshakePayload* deviceRecord()
{
    static const PayloadPtr record = certificateRecord({device().body()});
    return record.get();
}

HandshakePayload* respond(HandshakePayload* challenge)
{
    HandshakePayload* certificate = deviceRecord();
    HandshakePayload* response = nullptr;
    generateHandshakeResponse(challenge, keyDocument, keyDocumentLength, &certificate, &response,
                              deviceKey().data(), deviceKey().length());
    return response;
}

bool accepts(HandshakePayload* challenge, HandshakePayload* response)
{
    HandshakePayload* certificate = deviceRecord();
    return validateHandshakeResponse(challenge, keyDocument, keyDocumentLength, &certificate,
                                     response);
}

/** A made response, which must be accepted; certificate proofs differ each time. */
Outcome responseOf(bool made, HandshakePayload* challenge, HandshakePayload* response)
{
    if (!made)
    {
        return failedLeaving(response == untouched<HandshakePayload>());
    }
    const PayloadPtr owner{response};
    if (!accepts(challenge, response))
    {
        return wrong("a response that is not accepted");
    }
    std::string shown;
    for (const auto& [name, values] : support::parameters(response))
    {
        shown += name + ":" + std::to_string(values.size()) + ";";
    }
    return got(shown);
}

Outcome generates(Attempt& attempt, HandshakePayload* challenge)
{
    HandshakePayload* certificate = deviceRecord();
    HandshakePayload* response = untouched<HandshakePayload>();
    const bool made = attempt.call([&] {
        return generateHandshakeResponse(challenge, keyDocument, keyDocumentLength, &certificate,
                                         &response, deviceKey().data(), deviceKey().length());
    });
    return responseOf(made, challenge, response);
}

Outcome validates(Attempt& attempt, HandshakePayload* challenge)
{
    const PayloadPtr response{respond(challenge)};
    const std::string before = show(response.get());
    const bool accepted = attempt.call([&] { return accepts(challenge, response.get()); });
    return show(response.get()) == before ? said(accepted) : wrong("changed the response");
}

/** An altered proof, which is refused whatever fails. */
Outcome refuses(Attempt& attempt, HandshakePayload* challenge)
{
    const PayloadPtr response{respond(challenge)};
    char** proofs = response->values;
    while (proofs[1] != nullptr)
    {
        ++proofs;
    }
    char& altered = proofs[0][5];
    altered = altered == '1' ? '2' : '1';
    return attempt.call([&] { return accepts(challenge, response.get()); }) ? wrong("accepted")
                                                                            : got("refused");
}

Outcome challenges(Attempt& attempt, unsigned int mode)
{
    TextList types{"a1.0", certificateType, "b1.0"};
    HandshakePayload* challenge = untouched<HandshakePayload>();
    const int generated =
        attempt.call([&] { return generateServerHandshakeChallenge(types, mode, &challenge); });
    return stored<PayloadPtr>(generated == 1, challenge);
}

Outcome appends(Attempt& attempt, HandshakePayload* list)
{
    const std::string before = show(list);
    HandshakePayload* response = list;
    const int appended = attempt.call(
        [&] { return appendSSLCertToResponse(&response, "certificate", "hmac", someIv); });
    const PayloadPtr owner{response};
    return appended == 1 ? got(show(response)) : failedLeaving(show(response) == before);
}

EcKeyPtr ownKey()
{
    return EcKeyPtr{get_EC_privKey(deviceKey().data(), deviceKey().size())};
}

const Table rows{
    {"compareSoftwareCertTag", "the type", failsOnly,
     [](Attempt& attempt) {
         return said(attempt.call([] { return compareSoftwareCertTag(certificateType); }));
     }},
    {"genRandHexValue", "nothing", failsOnly,
     [](Attempt& attempt) {
         const std::uint64_t number = attempt.call(genRandHexValue);
         return number == 0 ? failed() : gave(number);
     }},
    {"_do_random", "nothing", failsOnly,
     [](Attempt& attempt) {
         const std::uint32_t number = attempt.call(_do_random);
         return number == 0 ? failed() : gave(number);
     }},
    {"generateServerHandshakeChallenge", "the certificate proof", getsBy,
     [](Attempt& attempt) {
         return challenges(attempt, 1);
     }},
    {"generateServerHandshakeChallenge", "a one-time password", getsBy,
     [](Attempt& attempt) {
         return challenges(attempt, 2);
     }},
    {"generateServerHandshakeChallenge", "both", getsBy,
     [](Attempt& attempt) {
         return challenges(attempt, 3);
     }},
    // The random device's failure draws the first type.
    {"generateClientHandshakeChallenge", "two proofs", getsBy,
     [](Attempt& attempt) {
         TextList types{"a1.0", certificateType};
         HandshakePayload* challenge = untouched<HandshakePayload>();
         const int generated =
             attempt.call([&] { return generateClientHandshakeChallenge(types, 2, &challenge); });
         return stored<PayloadPtr>(generated == 1, challenge);
     }},
    {"generateKeyTool", "two keys of two secrets", failsOnly,
     [](Attempt& attempt) {
         char* text = untouched<char>();
         const int generated =
             attempt.call([&] { return generateKeyTool("prefix", 2, 2, 20, &text); });
         return stored<HeapText>(generated == 1, text);
     }},
    {"generateHandshakeResponseForChallenge", "generating", getsBy,
     [](Attempt& attempt) {
         HandshakePayload* certificate = deviceRecord();
         HandshakePayload* response = untouched<HandshakePayload>();
         const int made = attempt.call([&] {
             return generateHandshakeResponseForChallenge(
                 bothChallenge(), keyDocument, keyDocumentLength, &certificate, &response,
                 deviceKey().data(), deviceKey().length(), 0);
         });
         return responseOf(made == 1, bothChallenge(), response);
     }},
    {"generateHandshakeResponseForChallenge", "validating", getsBy,
     [](Attempt& attempt) {
         HandshakePayload* certificate = deviceRecord();
         const PayloadPtr owner{respond(bothChallenge())};
         HandshakePayload* response = owner.get();
         return said(attempt.call([&] {
             return generateHandshakeResponseForChallenge(bothChallenge(), keyDocument,
                                                          keyDocumentLength, &certificate,
                                                          &response, nullptr, 0, 1);
         }));
     }},
    {"generateHandshakeResponse", "a one-time password", getsBy,
     [](Attempt& attempt) {
         return generates(attempt, passwordChallenge());
     }},
    {"generateHandshakeResponse", "a certificate proof", getsBy,
     [](Attempt& attempt) {
         return generates(attempt, certificateChallenge());
     }},
    {"generateHandshakeResponse", "both", getsBy,
     [](Attempt& attempt) {
         return generates(attempt, bothChallenge());
     }},
    {"generateHandshakeResponse", "counters of its own", getsBy,
     [](Attempt& attempt) {
         return generates(attempt, clientChallenge());
     }},
    {"validateHandshakeResponse", "a one-time password", getsBy,
     [](Attempt& attempt) {
         return validates(attempt, passwordChallenge());
     }},
    {"validateHandshakeResponse", "a certificate proof", getsBy,
     [](Attempt& attempt) {
         return validates(attempt, certificateChallenge());
     }},
    {"validateHandshakeResponse", "both", getsBy,
     [](Attempt& attempt) {
         return validates(attempt, bothChallenge());
     }},
    {"validateHandshakeResponse", "counters in the response", getsBy,
     [](Attempt& attempt) {
         return validates(attempt, clientChallenge());
     }},
    {"validateHandshakeResponse", "a wrong one-time password", getsBy | isRefused,
     [](Attempt& attempt) {
         return refuses(attempt, passwordChallenge());
     }},
    {"validateHandshakeResponse", "a wrong certificate proof", getsBy | isRefused,
     [](Attempt& attempt) {
         return refuses(attempt, certificateChallenge());
     }},
    {"get_x509_CN", "a certificate", getsBy,
     [](Attempt& attempt) {
         const std::string pem = device().pem();
         return made<HeapText>(attempt.call([&] { return get_x509_CN(pem.c_str()); }));
     }},
    {"appendSSLCertToResponse", "no list", failsOnly,
     [](Attempt& attempt) {
         return appends(attempt, nullptr);
     }},
    {"appendSSLCertToResponse", "a list", failsOnly,
     [](Attempt& attempt) {
         return appends(attempt, set_handshake_payload(passwordChallenge()));
     }},
    {"generateSignedResponseValue", "a key", getsBy,
     [](Attempt& attempt) {
         const std::string text = "token:device";
         const EcKeyPtr key = ownKey();
         const HeapText signature{
             attempt.call([&] { return generateSignedResponseValue(text, key.get()); })};
         if (!signature)
         {
             return failed();
         }
         const auto length = static_cast<unsigned int>(std::strlen(signature.get()));
         return verifyHRSignature(text, signature.get(), length, key.get()) == 1
                    ? got("a signature")
                    : wrong("no signature");
     }},
    {"verifyHRSignature", "a signature", getsBy,
     [](Attempt& attempt) {
         const std::string text = "token:device";
         const EcKeyPtr key = ownKey();
         const HeapText signature{generateSignedResponseValue(text, key.get())};
         const auto length = static_cast<unsigned int>(std::strlen(signature.get()));
         return said(attempt.call(
             [&] { return verifyHRSignature(text, signature.get(), length, key.get()); }));
     }},
    {"verifyHRSignature", "another text", getsBy | isRefused,
     [](Attempt& attempt) {
         const EcKeyPtr key = ownKey();
         const HeapText signature{generateSignedResponseValue("token:device", key.get())};
         const std::string text = "token:other";
         const auto length = static_cast<unsigned int>(std::strlen(signature.get()));
         return gave(attempt.call(
             [&] { return verifyHRSignature(text, signature.get(), length, key.get()); }));
     }},
};

} // namespace

} // namespace faults
