// SPDX-License-Identifier: Apache-2.0
#include "certificate_rules.hpp"
#include "command.hpp"
#include "payloads.hpp"

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path;
    std::optional<std::string> name;
    bool json = false;
};

void explain(const Options& options)
{
    const CertificateKey key = readCertificateKey(options.path);
    const bool accepted = key.isValidRaw(options.name);
    const std::string reason = otherEnds(key, options.path);
    Explanation explanation = explainCertificate(key, options.name);
    if (explanation.verdict == Exit::success && !reason.empty())
    {
        explanation = refused("first certificate", reason, "the same certificate first and last");
    }
    answer(explanation, accepted && reason.empty() ? Exit::success : Exit::invalid, options.json);
}

} // namespace

void addCertExplanation(const Command& certs)
{
    const Command verb = certs.verb(
        "explain", "Say by which rule a certificate chain is refused",
        "cert explain --name dev-device device-chain.pem",
        "Names the first rule that refuses, what it saw and what it wanted: the name of the first "
        "certificate,\nthe factory roots of this device, the chain of the last certificate. Exit "
        "status 0 when all is\naccepted, 3 when it is refused, 5 when the explanation is not what "
        "the library says.");
    Options& options = verb.runs(explain);
    verb.required("FILE", options.path, "PEM chain or certificate key");
    verb.option("--name", options.name, "Common name that the first must have, in any case");
    verb.json(options.json);
}

} // namespace bmcoauth::tool
