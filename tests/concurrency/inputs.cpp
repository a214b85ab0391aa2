// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace calls
{

namespace
{

template <typename Owner>
Owner required(typename Owner::pointer object)
{
    if (object == nullptr)
    {
        throw std::runtime_error("an input could not be made");
    }
    return Owner{object};
}

} // namespace

World::World()
{
    const std::string pem = peer.pem();
    const PayloadPtr certificate =
        required<PayloadPtr>(encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size())));
    HandshakePayload* receiver = certificate.get();
    char* mac = nullptr;
    const HeapText text = required<HeapText>(ecies_encrypt(
        "secret", 6, &receiver, &mac, bytesOf(deviceKey), lengthOf(deviceKey), iv.c_str()));
    sealed = text.get();
    sealedMac = HeapText{mac}.get();
    const HeaderPtr header = required<HeaderPtr>(create_jwt_header("JWT", "ES256", "2026-11"));
    const TokenPtr payload = required<TokenPtr>(create_jwt_payload(
        "alice", "8f1c", "EC", "1800000000", "1800000000", "1800003600", nullptr, 0));
    const support::EcKeyPtr key{get_EC_pubKey(device.pem().c_str())};
    const support::PkeyPtr wrapped{EVP_PKEY_new()};
    unsigned char* der = nullptr;
    EVP_PKEY_set1_EC_KEY(wrapped.get(), key.get());
    const int length = i2d_PUBKEY(wrapped.get(), &der);
    publicKey = support::pemOf("PUBLIC KEY",
                               {reinterpret_cast<char*>(der), static_cast<std::size_t>(length)});
    OPENSSL_free(der);
    token = required<HeapText>(
                generateJWT(header.get(), payload.get(), bytesOf(deviceKey), lengthOf(deviceKey)))
                .get();
    if (generateECPrivateKey(keyFile.c_str()) != 1)
    {
        throw std::runtime_error("no key file");
    }
}

Inputs::Inputs(const World& surroundings)
    : world{surroundings},
      pem{world.device.pem()},
      body{world.device.body()},
      certificate{required<PayloadPtr>(
          encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size())))},
      peerCertificate{support::certificateRecord({world.peer.body()})},
      device{certificate.get()},
      peer{peerCertificate.get()},
      signer{required<support::EcKeyPtr>(
          get_EC_privKey(bytesOf(world.deviceKey), lengthOf(world.deviceKey)))},
      certificates{device, nullptr},
      header{required<HeaderPtr>(create_jwt_header("JWT", "ES256", "2026-11"))},
      payload{required<TokenPtr>(create_jwt_payload("alice", "8f1c", "EC", "1800000000",
                                                    "1800000000", "1800003600", nullptr, 0))},
      authorizeRequest{required<AuthorizeRequestPtr>(create_authorize_request(
          "secret", "client", "state", nullptr, policy, parameters, nullptr))},
      authorizeTemplate{required<AuthorizeResponsePtr>(configure_auth_response("600", "bearer"))},
      registerRequest{required<RegisterRequestPtr>(
          create_register_request(texts, "console", "software", keys.data(), certificates.data(),
                                  types, support::ParameterList{{"T", {"hotp-1.0"}}}))},
      registerTemplate{required<RegisterResponsePtr>(configure_reg_response(
          "0", texts, nullptr, texts, texts, challenge, parameters, "sealed", certificates.data()))}
{
    const auto claim = [](char*& field, const char* text) {
        field = support::heapText(text).release();
    };
    claim(payload->xidp, R"({"fleet":["L"]})");
    payload->scope = set_char_array(TextList{"ravok_login", "ravok_configure"});
    payload->ravok_roles = set_char_array(TextList{"Operator"});
}

std::vector<Call> allCalls()
{
    std::vector<Call> all;
    for (const auto calls : {documentCalls, keyCalls, tokenCalls, registrationCalls})
    {
        std::ranges::move(calls(), std::back_inserter(all));
    }
    return all;
}

} // namespace calls
