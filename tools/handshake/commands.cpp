// SPDX-License-Identifier: Apache-2.0
#include "certificate/certificate_key.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/new_file.hpp"
#include "cli/refusal.hpp"
#include "document/parameters.hpp"
#include "envelope/sealed_document.hpp"
#include "handshake/challenge.hpp"
#include "key/keys.hpp"

#include <algorithm>

namespace bmcoauth::tool
{

namespace
{

// ------------------------------------------------------------------------------------ challenge

struct ChallengeOptions
{
    std::vector<std::string> types;
    std::uint32_t mode = 3;
    bool client = false;
    std::uint32_t count = 1;
};

void challenge(const ChallengeOptions& options)
{
    const std::vector<std::string_view> types = viewsOf(options.types);
    printParameters(options.client ? orStop(clientChallenge(types, options.count),
                                            "no client's challenge can be made", Exit::usage)
                                   : challengeFor(types, options.mode));
}

/** The text of the key document @p path; empty without one. */
std::string readSecrets(const std::string& path)
{
    return path.empty() ? "" : textOf(readObject(path));
}

// -------------------------------------------------------------------------------------- respond

struct RespondOptions
{
    std::string challenge;
    std::string keys;
    std::string certificate;
    std::string key;
};

void respond(const RespondOptions& options)
{
    const ParameterList asked = readParameters(options.challenge, challengeMember);
    const std::string secrets = readSecrets(options.keys);
    const auto certificate = ifGiven(options.certificate, readCertificateKey);
    const auto key = ifGiven(options.key, readPrivateKey);
    printParameters(
        orStop(bmcoauth::respond(asked, {secrets, pointerTo(certificate), pointerTo(key)}),
               "the challenge cannot be answered", Exit::invalid));
}

// ---------------------------------------------------------------------------------------- check

struct CheckOptions
{
    std::string path = "-";
    std::string challenge;
    std::string keys;
    std::string certificate;
    std::optional<std::string> name;
    bool chain = false;
    bool asTheLibrary = false;
    bool json = false;
};

void checkCertificate(const CertificateKey* certificate, const CheckOptions& options)
{
    if (certificate == nullptr)
    {
        throw Stop{Exit::usage, "--chain needs --certificate"};
    }
    requireSameEnds(*certificate, options.certificate);
    if (const Expected<void> valid = certificate->isValid(options.name); !valid)
    {
        refuse("the certificate in " + nameOf(options.certificate) + " is refused",
               reasonOf(valid.error()));
    }
}

/** Why @p response does not answer all of @p challenge, although validateHandshakeResponse may
 *  accept it; nothing if it does. */
std::optional<Reason> missingProof(const ParameterList& challenge, const ParameterList& response)
{
    const std::vector<std::string> types = valuesOf(challenge, "T");
    const std::size_t proofs = valuesOf(response, "R").size();
    if (proofs != types.size())
    {
        return Reason{.rule = "tool.proof-count",
                      .sentence = "the challenge asks for " + std::to_string(types.size()) +
                                  " proofs, and the response holds " + std::to_string(proofs)};
    }
    const auto place = std::ranges::find_if(types, isCertificateType);
    if (place != types.end() && place + 1 != types.end())
    {
        return Reason{.rule = "tool.proof-order",
                      .sentence = "the challenge asks for another proof after the certificate "
                                  "proof, which then does not count"};
    }
    return std::nullopt;
}

/** The verdict of validateHandshakeResponse, which accepts responses with a missing proof. */
Expected<void> isAccepted(const ParameterList& challenge, const ParameterList& response,
                          const std::string& secrets, const CertificateKey* certificate)
{
    HandshakePayload* record = certificate == nullptr ? nullptr : certificate->parameters().get();
    if (!validateHandshakeResponse(challenge.get(), secrets.c_str(),
                                   static_cast<unsigned int>(secrets.size()), &record,
                                   response.get()))
    {
        return Error::last();
    }
    return {};
}

void checkProofs(const ParameterList& asked, const ParameterList& response,
                 const CertificateKey* certificate, const CheckOptions& options)
{
    const std::string secrets = readSecrets(options.keys);
    const std::optional<Reason> missing = missingProof(asked, response);
    const Expected<void> verdict = options.asTheLibrary
                                       ? isAccepted(asked, response, secrets, certificate)
                                       : isProven(asked, response, secrets, certificate);
    if (!verdict)
    {
        refuse("the response is refused",
               missing && !options.asTheLibrary ? *missing : reasonOf(verdict.error()));
    }
    if (missing)
    {
        warn(missing->sentence);
    }
}

void check(const CheckOptions& options)
{
    if (options.name && !options.chain)
    {
        throw Stop{Exit::usage, "--name needs --chain: without it no name is checked"};
    }
    const ParameterList asked = readParameters(options.challenge, challengeMember);
    const ParameterList response = readParameters(options.path, responseMember);
    const auto certificate = ifGiven(options.certificate, readCertificateKey);
    if (options.chain)
    {
        checkCertificate(pointerTo(certificate), options);
    }
    checkProofs(asked, response, pointerTo(certificate), options);
    if (!options.json)
    {
        printGood("accepted", options.chain ? ", chain verified" : "");
        return;
    }
    Json::Value document;
    document["verdict"] = "valid";
    document["chain_verified"] = options.chain;
    document["proofs"] = static_cast<Json::UInt64>(valuesOf(response, "R").size());
    document["types"] = static_cast<Json::UInt64>(valuesOf(asked, "T").size());
    printJson(document);
}

// ----------------------------------------------------------------------------------------- keys

struct KeysOptions
{
    std::string prefix;
    std::uint32_t keys = 1;
    std::uint32_t tokens = 1;
    std::uint32_t length = 20; // as RFC 4226 recommends
    std::string out;
    bool force = false;
    bool json = false;
};

void makeKeys(const KeysOptions& options)
{
    constexpr std::size_t longestName = 49;
    const std::string lastName = options.prefix + std::to_string(options.keys) + ".0";
    if (options.keys != 0 && lastName.size() > longestName)
    {
        throw Stop{Exit::usage, "the prefix is too long: " + std::to_string(lastName.size()) +
                                    " characters in the name of a type, which has " +
                                    std::to_string(longestName) + " at most"};
    }
    requireFileName(options.out);
    const Text document =
        orStop(generateSecrets(options.prefix, options.keys, options.tokens, options.length),
               "no keys could be made");
    if (options.out.empty())
    {
        print(document);
        return;
    }
    writeFile(options.out, std::string{document} + '\n', Readers::owner,
              {.replaced = options.force});
    if (options.json)
    {
        Json::Value report;
        report["file"] = options.out;
        printJson(report);
    }
}

// --------------------------------------------------------------------------------------- attach

struct AttachOptions
{
    std::string path = "-";
    std::string sealed;
};

void attach(const AttachOptions& options)
{
    const SealedDocument sealed{options.sealed};
    ParameterList response = readParameters(options.path, responseMember);
    if (const Expected<void> attached = bmcoauth::attach(response, sealed.view()); !attached)
    {
        stopFor(attached.error(), "the envelope in " + nameOf(options.sealed) + " is refused",
                Exit::invalid);
    }
    printParameters(response);
}

} // namespace

void addHandshakeCommands(const Command& root)
{
    const Command group = root.group("handshake", "Challenges and their answers");

    const Command challengeVerb =
        group.verb("challenge", "Make the challenge of a server, or of a client",
                   "handshake challenge --type otp1.0 --type software_id_cert-1.0 --mode 3",
                   "Mode 1 asks for the certificate proof, 2 for a one-time password, 3 for both.");
    ChallengeOptions& challengeOptions = challengeVerb.runs(challenge);
    challengeVerb.required("--type TYPE", challengeOptions.types, "Type that the client supports");
    challengeVerb.number("--mode 1|2|3", challengeOptions.mode, "Proofs to ask for (default 3)", 1,
                         3);
    challengeVerb.flag("--client", challengeOptions.client, "Make a client's challenge");
    challengeVerb.number("--count NUMBER", challengeOptions.count,
                         "How often the client's challenge names its type (default 1)", 1, 10000);

    const Command respondVerb = group.verb(
        "respond", "Answer a challenge",
        "handshake respond --challenge challenge.json --keys keys.json --certificate device.pem "
        "--key device.key");
    RespondOptions& respondOptions = respondVerb.runs(respond);
    respondVerb.required("--challenge FILE", respondOptions.challenge,
                         "Challenge, or register response that holds one");
    respondVerb.option("--keys FILE", respondOptions.keys, "Key document with the shared secrets");
    respondVerb.option("--certificate FILE", respondOptions.certificate,
                       "Own certificate: PEM chain or certificate key, the first counts");
    respondVerb.option("--key FILE", respondOptions.key, "The certificate's private key file");

    const Command checkVerb = group.verb(
        "check", "Check the response to a challenge",
        "handshake check --challenge challenge.json --keys keys.json --certificate device.pem "
        "response.json",
        "Refuses a response with a wrong or missing proof. With --chain, also refuses a "
        "certificate that does not verify, and a file whose first certificate, whose name and key "
        "count, is not the last one, which is verified.\n\n"
        "Accept each challenge once: nothing here remembers it.");
    CheckOptions& checkOptions = checkVerb.runs(check);
    checkVerb.option("FILE", checkOptions.path,
                     "Response, or authorize request that holds a handshake_response");
    checkVerb.required("--challenge FILE", checkOptions.challenge,
                       "Challenge, or register response that holds one");
    checkVerb.option("--keys FILE", checkOptions.keys, "Key document with the shared secrets");
    checkVerb.option("--certificate FILE", checkOptions.certificate,
                     "The client's certificate: PEM chain or certificate key, the first counts");
    checkVerb.flag("--chain", checkOptions.chain,
                   "Also verify the certificate chain against the factory roots");
    checkVerb.option("--name NAME", checkOptions.name,
                     "With --chain: its common name; upper and lower case count as the same");
    checkVerb.flag("--as-the-library", checkOptions.asTheLibrary,
                   "Accept a missing proof with a warning, as validateHandshakeResponse does");
    checkVerb.json(checkOptions.json);

    const Command keysVerb =
        group.verb("keys", "Make a key document with random secrets",
                   "handshake keys --prefix otp --keys 2 --tokens 8",
                   "The types are the prefix, the number of the key and \".0\": otp1.0, otp2.0.");
    KeysOptions& keysOptions = keysVerb.runs(makeKeys);
    keysVerb.required("--prefix NAME", keysOptions.prefix, "Beginning of the types' names");
    keysVerb.number("--keys NUMBER", keysOptions.keys, "Number of types (default 1)", 0, 10000);
    keysVerb.number("--tokens NUMBER", keysOptions.tokens, "Secrets of each type (default 1)", 1,
                    10000);
    keysVerb.number("--length BYTES", keysOptions.length, "Random bytes of a secret (default 20)",
                    1, 1000);
    keysVerb.option("--out FILE", keysOptions.out,
                    "File to write, mode 0600; default: standard output");
    keysVerb.flag("--force", keysOptions.force, "Replace an existing file");
    keysVerb.json(keysOptions.json);

    const Command attachVerb = group.verb("attach", "Attach a sealed SSL certificate to a response",
                                          "handshake attach --sealed sealed.json response.json");
    AttachOptions& attachOptions = attachVerb.runs(attach);
    attachVerb.option("FILE", attachOptions.path, "Handshake response");
    attachVerb.required("--sealed FILE", attachOptions.sealed, "Output of ecies seal");
}

} // namespace bmcoauth::tool
