// SPDX-License-Identifier: Apache-2.0
#include "peers.hpp"

#include <jwt.h>

namespace bench
{

namespace
{

using Token = std::unique_ptr<jwt_t, support::Releaser<jwt_free>>;

void issue()
{
    const std::string& pem = signingKey().pem;
    const Claims& claims = fixtures().claims;
    jwt_t* made = nullptr;
    require(jwt_new(&made) == 0, "libjwt");
    const Token token{made};
    require(jwt_add_grants_json(made, claims.json().c_str()) == 0 &&
                jwt_set_alg(made, JWT_ALG_ES256, bytesOf(pem), static_cast<int>(pem.size())) == 0,
            "libjwt");
    const support::HeapText text{jwt_encode_str(made)};
    require(text != nullptr, "libjwt");
}

void validate(const Issuer& issuer)
{
    jwt_t* read = nullptr;
    require(jwt_decode(&read, issuer.token.c_str(), bytesOf(issuer.pem),
                       static_cast<int>(issuer.pem.size())) == 0,
            "libjwt");
    const Token token{read};
    require(jwt_get_grant(read, "sub") != nullptr, "libjwt");
}

} // namespace

Peer libjwt()
{
    return {"libjwt",
            {{"issue", issue},
             {"delegated-es256-pem",
              [] {
                  validate(fixtures().es256);
              }},
             {"delegated-rs256", [] {
                  validate(fixtures().rs256);
              }}}};
}

} // namespace bench
