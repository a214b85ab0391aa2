// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "handshake.hpp"
#include "handshake_rules.hpp"
#include "payloads.hpp"

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path = "-";
    std::string challenge;
    std::string keys;
    std::string certificate;
    bool json = false;
};

void explain(const Options& options)
{
    const PayloadPtr challenge = readPayload(options.challenge, challengeMember);
    const PayloadPtr response = readPayload(options.path, "handshake_response");
    std::optional<CertificateKey> certificate;
    if (!options.certificate.empty())
    {
        certificate.emplace(options.certificate);
    }
    const HandshakeMaterial handshake{
        challenge.get(), response.get(),
        options.keys.empty() ? "" : json_fastWriter(readObject(options.keys)),
        certificate ? certificate->get() : nullptr};
    const bool accepted = validateHandshakeResponse(
        challenge.get(), handshake.keys.c_str(), static_cast<unsigned int>(handshake.keys.size()),
        certificate ? certificate->address() : nullptr, response.get());
    answer(explainResponse(handshake), accepted ? Exit::success : Exit::invalid, options.json);
}

} // namespace

void addHandshakeExplanation(const Command& handshakes)
{
    const Command verb = handshakes.verb(
        "explain", "Say by which rule a response is refused",
        "handshake explain --challenge challenge.json --keys keys.json --certificate device.pem "
        "response.json",
        "Names the first rule that refuses, what it saw and what it wanted. Exit status 0 when the "
        "response is\naccepted, 3 when it is refused, 5 when the explanation is not what the "
        "library says.\nThe chain of the certificate is a matter of cert explain.");
    Options& options = verb.runs(explain);
    verb.option("FILE", options.path,
                "Response, or authorize request that holds a handshake_response");
    verb.required("--challenge", options.challenge,
                  "Challenge, or register response that holds one");
    verb.option("--keys", options.keys, "Key document with the shared secrets");
    verb.option("--certificate", options.certificate,
                "The client's certificate: PEM chain or certificate key, the first counts");
    verb.json(options.json);
}

} // namespace bmcoauth::tool
