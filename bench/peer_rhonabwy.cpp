// SPDX-License-Identifier: Apache-2.0
#include "peers.hpp"

#include <rhonabwy.h>

namespace bench
{

namespace
{

using Key = std::unique_ptr<jwk_t, support::Releaser<r_jwk_free>>;
using Token = std::unique_ptr<jwt_t, support::Releaser<r_jwt_free>>;

Key keyOf(const std::string& pem, int type)
{
    jwk_t* key = nullptr;
    require(r_jwk_init(&key) == RHN_OK, "rhonabwy");
    Key owned{key};
    require(r_jwk_import_from_pem_der(key, type, R_FORMAT_PEM, bytesOf(pem), pem.size()) == RHN_OK,
            "rhonabwy");
    return owned;
}

Token newToken()
{
    jwt_t* token = nullptr;
    require(r_jwt_init(&token) == RHN_OK, "rhonabwy");
    return Token{token};
}

void issue()
{
    const Key key = keyOf(signingKey().pem, R_X509_TYPE_PRIVKEY);
    const Token token = newToken();
    require(r_jwt_set_full_claims_json_str(token.get(), fixtures().claims.json().c_str()) ==
                    RHN_OK &&
                r_jwt_set_sign_alg(token.get(), R_JWA_ALG_ES256) == RHN_OK,
            "rhonabwy");
    char* text = r_jwt_serialize_signed(token.get(), key.get(), 0);
    require(text != nullptr, "rhonabwy");
    r_free(text);
}

void validate(const Issuer& issuer)
{
    const Key key = keyOf(issuer.pem, R_X509_TYPE_PUBKEY);
    const Token token = newToken();
    require(r_jwt_parse(token.get(), issuer.token.c_str(), 0) == RHN_OK &&
                r_jwt_verify_signature(token.get(), key.get(), 0) == RHN_OK &&
                r_jwt_get_claim_str_value(token.get(), "sub") != nullptr,
            "rhonabwy");
}

} // namespace

Peer rhonabwy()
{
    require(r_global_init() == RHN_OK, "rhonabwy");
    return {"rhonabwy",
            {{"issue", issue},
             {"delegated-es256-pem",
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
