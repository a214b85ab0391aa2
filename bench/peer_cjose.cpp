// SPDX-License-Identifier: Apache-2.0
#include "peers.hpp"

#include <cjose/cjose.h>

namespace bench
{

namespace
{

using Header = std::unique_ptr<cjose_header_t, support::Releaser<cjose_header_release>>;
using Key = std::unique_ptr<cjose_jwk_t, support::Releaser<cjose_jwk_release>>;
using Token = std::unique_ptr<cjose_jws_t, support::Releaser<cjose_jws_release>>;

Key keyOf(const std::string& json)
{
    Key key{cjose_jwk_import(json.data(), json.size(), nullptr)};
    require(key != nullptr, "cjose");
    return key;
}

void issue()
{
    const std::string payload = fixtures().claims.json();
    const Key key = keyOf(signingKey().jwk);
    const Header header{cjose_header_new(nullptr)};
    require(header && cjose_header_set(header.get(), CJOSE_HDR_ALG, "ES256", nullptr), "cjose");
    const Token token{
        cjose_jws_sign(key.get(), header.get(), bytesOf(payload), payload.size(), nullptr)};
    const char* text = nullptr; // which stays the token's
    require(token && cjose_jws_export(token.get(), &text, nullptr), "cjose");
}

/** The payload is given as text: its claims are left to the user. */
void validate(const Issuer& issuer)
{
    const Key key = keyOf(issuer.jwk);
    const Token token{cjose_jws_import(issuer.token.data(), issuer.token.size(), nullptr)};
    std::uint8_t* payload = nullptr;
    std::size_t length = 0;
    require(token && cjose_jws_verify(token.get(), key.get(), nullptr) &&
                cjose_jws_get_plaintext(token.get(), &payload, &length, nullptr),
            "cjose");
}

} // namespace

Peer cjose()
{
    return {"cjose",
            {{"issue", issue},
             {"delegated-es256-jwk",
              [] {
                  validate(fixtures().es256);
              }},
             {"delegated-rs256",
              [] {
                  validate(fixtures().rs256);
              }},
             {"delegated-ps256",
              [] {
                  validate(fixtures().ps256);
              }},
             {"delegated-es384", [] {
                  validate(fixtures().es384);
              }}}};
}

} // namespace bench
