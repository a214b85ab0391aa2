// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "envelope_rules.hpp"
#include "keys.hpp"
#include "payloads.hpp"

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path = "-";
    std::string key;
    std::string peer;
    bool json = false;
};

void explain(const Options& options)
{
    const PrivateKey key = readPrivateKey(options.key);
    const CertificateKey peer = readCertificateKey(options.peer);
    const SealedDocument sealed{options.path};
    answer(explainEnvelope(sealed.view(), peer, key),
           bmcoauth::open(sealed.view(), peer, key) ? Exit::success : Exit::invalid, options.json);
}

} // namespace

void addEciesExplanation(const Command& envelopes)
{
    const Command verb = envelopes.verb(
        "explain", "Say by which rule an envelope is refused",
        "ecies explain --key client.key --peer server.pem sealed.json",
        "Names the first rule that refuses, what it saw and what it wanted; shows nothing of what "
        "was sealed.\nExit status 0 when the envelope opens, 3 when it is refused, 5 when the "
        "explanation is not what\nthe library says.");
    Options& options = verb.runs(explain);
    verb.option("FILE", options.path, "Envelope");
    verb.required("--key", options.key, "Own private key file");
    verb.required("--peer", options.peer,
                  "The other party's certificate: PEM file or certificate key, the first counts");
    verb.json(options.json);
}

} // namespace bmcoauth::tool
