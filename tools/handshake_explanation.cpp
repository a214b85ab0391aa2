// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "handshake.hpp"
#include "handshake_rules.hpp"

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::optional<std::string> path;
    std::string challenge;
    std::string keys;
    std::string certificate;
    std::string key;
    bool respond = false;
    bool json = false;
};

void checkOptions(const Options& options)
{
    if (options.respond && options.path)
    {
        throw Stop{Exit::usage, "--respond takes no response: it asks for the one to be made"};
    }
    if (!options.respond && !options.key.empty())
    {
        throw Stop{Exit::usage, "--key needs --respond: a response is checked without it"};
    }
}

void explain(const Options& options)
{
    checkOptions(options);
    const ParameterList challenge = readParameters(options.challenge, challengeMember);
    const auto response =
        options.respond ? std::nullopt
                        : std::optional{readParameters(options.path.value_or("-"), responseMember)};
    const auto certificate = ifGiven(options.certificate, readCertificateKey);
    const std::string secrets = readSecrets(options.keys);
    if (response)
    {
        Explanation explanation =
            explainResponse(challenge, *response, secrets, pointerTo(certificate));
        const std::string missing = missingProof(challenge, *response);
        if (explanation.verdict == Exit::success && !missing.empty())
        {
            explanation = refused("R", missing, "a proof in R for each type in T");
        }
        answer(explanation,
               isProven(challenge, *response, secrets, pointerTo(certificate)) ? Exit::success
                                                                               : Exit::invalid,
               options.json);
        return;
    }
    const auto key = ifGiven(options.key, readPrivateKey);
    const Credentials given{secrets, pointerTo(certificate), pointerTo(key)};
    answer(explainAnswer(challenge, given),
           respond(challenge, given) ? Exit::success : Exit::invalid, options.json);
}

} // namespace

void addHandshakeExplanation(const Command& handshakes)
{
    const Command verb = handshakes.verb(
        "explain", "Say by which rule a response is refused, or none can be made",
        "handshake explain --challenge challenge.json --keys keys.json --certificate device.pem "
        "response.json",
        "Names the first rule that refuses, what it saw and what it wanted. Exit status 0 when the "
        "response is\naccepted, 3 when it is refused, 5 when the explanation is not what the "
        "library says.\nWith --respond it takes no response, but what handshake respond takes, "
        "and says why that cannot\nanswer the challenge; 0 then means that it can. The chain of "
        "the certificate is a matter of cert explain.");
    Options& options = verb.runs(explain);
    verb.option("FILE", options.path,
                "Response, or authorize request that holds a handshake_response");
    verb.required("--challenge", options.challenge,
                  "Challenge, or register response that holds one");
    verb.option("--keys", options.keys, "Key document with the shared secrets");
    verb.option("--certificate", options.certificate,
                "The client's certificate: PEM chain or certificate key, the first counts");
    verb.flag("--respond", options.respond, "Say why the challenge cannot be answered");
    verb.option("--key", options.key, "With --respond: the certificate's private key file");
    verb.json(options.json);
}

} // namespace bmcoauth::tool
