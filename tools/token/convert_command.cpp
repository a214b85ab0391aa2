// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/openssl.hpp"
#include "token/tokens.hpp"

#include <openssl/ecdsa.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

using SignaturePtr = std::unique_ptr<ECDSA_SIG, Releaser<ECDSA_SIG_free>>;

/** Bytes of each of the two integers of a signature (RFC 7518, section 3.4). */
constexpr std::array<std::pair<std::string_view, std::size_t>, 3> algorithms{
    {{"ES256", 32}, {"ES384", 48}, {"ES512", 66}}};

struct Options
{
    std::string path = "-";
    std::string form;
    bool json = false;
};

using ByteList = std::vector<unsigned char>;

std::size_t integerBytes(const Json::Value& header)
{
    const std::string algorithm = header["alg"].isString() ? header["alg"].asString() : "";
    for (const auto& [name, bytes] : algorithms)
    {
        if (algorithm == name)
        {
            return bytes;
        }
    }
    throw Stop{Exit::invalid, "only signatures of ES256, ES384 and ES512 have two forms; this "
                              "token's alg is " +
                                  (algorithm.empty() ? "none" : shown(algorithm))};
}

ByteList encoded(const ECDSA_SIG& signature)
{
    const int length = i2d_ECDSA_SIG(&signature, nullptr);
    ByteList der(length > 0 ? static_cast<std::size_t>(length) : 0);
    unsigned char* position = der.data();
    if (length <= 0 || i2d_ECDSA_SIG(&signature, &position) != length)
    {
        throw Stop{Exit::failure, "the signature could not be encoded"};
    }
    return der;
}

ByteList rawOf(ByteSpan der, std::size_t width)
{
    const unsigned char* position = der.data();
    const SignaturePtr signature{d2i_ECDSA_SIG(nullptr, &position, static_cast<long>(der.size()))};
    // Only the one DER form of the two integers, with nothing behind it.
    if (!signature || !std::ranges::equal(encoded(*signature), der))
    {
        throw Stop{Exit::invalid, der.size() == 2 * width
                                      ? "the signature is in raw form already"
                                      : "the signature is not a DER sequence of two integers"};
    }
    ByteList raw(2 * width);
    const auto size = static_cast<int>(width);
    if (BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), raw.data(), size) != size ||
        BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), raw.data() + width, size) != size)
    {
        throw Stop{Exit::invalid, "the signature is too long for the token's alg"};
    }
    return raw;
}

ByteList derOf(ByteSpan raw, std::size_t width)
{
    if (raw.size() != 2 * width)
    {
        throw Stop{Exit::invalid, "the signature has " + std::to_string(raw.size()) +
                                      " bytes: in raw form the token's alg has " +
                                      std::to_string(2 * width)};
    }
    const SignaturePtr signature{ECDSA_SIG_new()};
    const auto size = static_cast<int>(width);
    BignumPtr r{BN_bin2bn(raw.data(), size, nullptr)};
    BignumPtr s{BN_bin2bn(raw.data() + width, size, nullptr)};
    if (!signature || ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1)
    {
        throw std::bad_alloc();
    }
    // They are the signature's now.
    static_cast<void>(r.release());
    static_cast<void>(s.release());
    return encoded(*signature);
}

void convert(const Options& options)
{
    const std::string token = readToken(options.path);
    const std::optional<TokenParts> parts = partsOf(token);
    if (!parts)
    {
        throw Stop{Exit::invalid, nameOf(options.path) + " holds no token: two dots are expected"};
    }
    const std::size_t width = integerBytes(decodePart(parts->header, "header"));
    const Bytes signature = orStop(decodeBase64Url(parts->signature),
                                   "the signature of the token is not Base64url", Exit::invalid);
    const ByteList other =
        options.form == "raw" ? rawOf(signature, width) : derOf(signature, width);
    const std::string result =
        (parts->signingInput() + ".").append(orStop(base64Url(other), "memory is exhausted"));
    if (!options.json)
    {
        print(result);
        return;
    }
    Json::Value document;
    document["access_token"] = result;
    printJson(document);
}

} // namespace

void addTokenConversion(const Command& tokens)
{
    const Command verb = tokens.verb(
        "convert", "Turn a token's signature into the raw or the DER form",
        "token convert --to raw response.json",
        "Tokens of ours carry ECDSA signatures as DER. Other software writes and expects the two "
        "integers side by side (RFC 7518, section 3.4). For ES256, ES384 and ES512. Nothing is "
        "verified.");
    Options& options = verb.runs(convert);
    verb.option("FILE", options.path, "Token, or response document with access_token");
    verb.choice("--to", options.form, "Form to write", {"raw", "der"});
    verb.json(options.json);
}

} // namespace bmcoauth::tool
