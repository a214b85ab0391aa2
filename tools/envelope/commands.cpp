// SPDX-License-Identifier: Apache-2.0
#include "certificate/certificate_key.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/refusal.hpp"
#include "envelope/sealed_document.hpp"
#include "key/keys.hpp"

#include <algorithm>
#include <string_view>

namespace bmcoauth::tool
{

namespace
{

Text freshIv()
{
    return orStop(randomIv(), "no IV could be drawn");
}

struct IvOptions
{
    bool json = false;
};

/** Prints @p text, as the member @p name of a document if @p json. */
void printText(std::string_view text, const char* name, bool json)
{
    if (!json)
    {
        print(text);
        return;
    }
    Json::Value document;
    document[name] = std::string{text};
    printJson(document);
}

void printIv(const IvOptions& options)
{
    printText(std::string{freshIv()}, "iv", options.json);
}

struct SealOptions
{
    std::string path = "-";
    std::string key;
    std::string peer;
    std::string iv;
};

/** The envelope of @p data under the IV @p iv. The C function, since bmcoauth::seal leaves the
 *  choice of an IV to nobody. */
Envelope sealed(const std::string& data, std::string_view iv, const CertificateKey& peer,
                const PrivateKey& key)
{
    const char* const failed = "the data could not be sealed";
    Text ivText = orStop(Text::copy(iv), failed);
    HandshakePayload* peerRecord = peer.parameters().get();
    char* mac = nullptr;
    Text ciphertext{ecies_encrypt(data.data(), static_cast<unsigned int>(data.size()), &peerRecord,
                                  &mac, key.der().data(), static_cast<int>(key.der().size()),
                                  ivText.c_str())};
    if (ciphertext.view().empty())
    {
        refuse(failed, reasonOf(Error::last()));
    }
    return Envelope{std::move(ciphertext), Text{mac}, std::move(ivText)};
}

void seal(const SealOptions& options)
{
    const std::string iv = options.iv.empty() ? std::string{freshIv()} : options.iv;
    // The library does not report characters that are not digits.
    if (iv.size() != 32 || iv.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    {
        throw Stop{Exit::usage, "--iv takes 32 hexadecimal digits (bmcoauth ecies iv makes them)"};
    }
    const PrivateKey key = readPrivateKey(options.key);
    const CertificateKey peer = readCertificateKey(options.peer);
    std::string data = readText(options.path);
    // ecies_encrypt adds no line feed of its own to data that ends with one. The receiver takes one
    // off anyway.
    const std::size_t added = data.ends_with('\n') ? 1 : 0;
    const std::size_t most = mostSealedBytes - added;
    if (data.empty() || data.size() > most)
    {
        throw Stop{Exit::invalid, nameOf(options.path) + " holds " + std::to_string(data.size()) +
                                      " bytes: an envelope takes from 1 to " +
                                      std::to_string(most)};
    }
    data.append(added, '\n');
    const Envelope envelope = sealed(data, iv, peer, key);
    Json::Value document;
    document["ciphertext"] = envelope.ciphertext.c_str();
    document["mac"] = envelope.mac.c_str();
    document["iv"] = envelope.iv.c_str();
    printJson(document);
}

struct OpenOptions
{
    std::string path = "-";
    std::string key;
    std::string peer;
    bool dataOnly = false;
    bool json = false;
};

/** The plaintext without the line feed and the 16 random characters behind the data. */
std::string_view dataOf(std::string_view plaintext)
{
    constexpr std::size_t randomCharacters = 16;
    const std::size_t size = plaintext.size();
    const bool sealed = size > randomCharacters + 1 &&
                        plaintext[size - randomCharacters - 1] == '\n' &&
                        std::ranges::all_of(plaintext.substr(size - randomCharacters),
                                            [](char c) { return c > ' ' && c <= '~'; });
    if (!sealed)
    {
        throw Stop{Exit::invalid, "what was sealed does not end with a line feed and 16 random "
                                  "characters: open it without --data-only"};
    }
    return plaintext.substr(0, size - randomCharacters - 1);
}

void open(const OpenOptions& options)
{
    const PrivateKey key = readPrivateKey(options.key);
    const CertificateKey peer = readCertificateKey(options.peer);
    const SealedDocument sealed{options.path};
    const Opened opened =
        orStop(bmcoauth::open(sealed.view(), peer, key), "the envelope is refused", Exit::invalid);
    if (options.dataOnly && !options.json)
    {
        printBytes(dataOf(opened.whole()));
        return;
    }
    printText(options.dataOnly ? dataOf(opened.whole()) : opened.whole(), "text", options.json);
}

} // namespace

void addEciesCommands(const Command& root)
{
    const Command group = root.group("ecies", "Envelopes between two parties");

    const Command ivVerb = group.verb("iv", "Print a fresh initialization vector", "ecies iv");
    IvOptions& ivOptions = ivVerb.runs(printIv);
    ivVerb.json(ivOptions.json);

    const Command sealVerb =
        group.verb("seal", "Seal a text for the holder of a certificate",
                   "ecies seal --key server.key --peer client.pem certificate.pem",
                   "Prints ciphertext, iv and mac. Never use an IV twice with the same keys.");
    SealOptions& sealOptions = sealVerb.runs(seal);
    sealVerb.option("FILE", sealOptions.path, "Text to seal");
    sealVerb.required("--key FILE", sealOptions.key, "Own private key file");
    sealVerb.required(
        "--peer FILE", sealOptions.peer,
        "The other party's certificate: PEM file or certificate key, the first counts");
    sealVerb.option("--iv DIGITS", sealOptions.iv, "32 hexadecimal digits (default: random ones)");

    const Command openVerb = group.verb(
        "open", "Open an envelope of the holder of a certificate",
        "ecies open --key client.key --peer server.pem --data-only sealed.json",
        "Takes what ecies seal printed, or a handshake response with encrypted_sslcert, HMAC and "
        "iv. The text ends with a line feed and 16 random characters.");
    OpenOptions& openOptions = openVerb.runs(open);
    openVerb.option("FILE", openOptions.path, "Envelope");
    openVerb.required("--key FILE", openOptions.key, "Own private key file");
    openVerb.required(
        "--peer FILE", openOptions.peer,
        "The other party's certificate: PEM file or certificate key, the first counts");
    openVerb.flag("--data-only", openOptions.dataOnly,
                  "Write the bytes that ecies seal was given, and nothing else");
    openVerb.json(openOptions.json);
}

} // namespace bmcoauth::tool
