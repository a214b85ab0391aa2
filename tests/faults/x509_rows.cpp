// SPDX-License-Identifier: Apache-2.0
#include "inputs.hpp"
#include "show.hpp"

using support::certificateRecord;
using support::EcKeyPtr;
using support::Identity;
using support::MarkerFile;
using support::X509Ptr;

namespace faults
{

namespace
{

/** Verifies a chain on a device with both factory roots. A root that cannot be read refuses it;
 *  everything else that fails is an internal failure. */
Outcome verifies(Attempt& attempt, std::initializer_list<std::string> bodies)
{
    const DeviceFiles files;
    const PayloadPtr record = certificateRecord(bodies);
    const int result = attempt.call([&] { return chainVerify(record.get()); });
    return result == 1                   ? got("verified")
           : result == 0 || result == -1 ? failed()
                                         : wrong("answered " + std::to_string(result));
}

Outcome readsKey(Attempt& attempt, const Der& key)
{
    return made<EcKeyPtr>(attempt.call([&] { return get_EC_privKey(key.data(), key.size()); }));
}

Outcome readsPublicKey(Attempt& attempt, const Identity& identity)
{
    const std::string pem = identity.pem();
    return made<EcKeyPtr>(attempt.call([&] { return get_EC_pubKey(pem.c_str()); }));
}

const Table rows{
    {"recreate_x509_cert", "a certificate", failsOnly,
     [](Attempt& attempt) {
         const std::string body = device().body();
         return made<HeapText>(attempt.call([&] { return recreate_x509_cert(body.c_str()); }));
     }},
    {"decode_x509_jwk", "a certificate", failsOnly,
     [](Attempt& attempt) {
         const PayloadPtr record = certificateRecord({device().body()});
         unsigned int length = 77;
         const HeapText pem{attempt.call([&] { return decode_x509_jwk(record.get(), &length); })};
         return pem ? got(show(pem.get()) + std::to_string(length)) : failedLeaving(length == 0);
     }},
    {"getX509Cert", "a certificate", getsBy,
     [](Attempt& attempt) {
         const std::string pem = device().pem();
         return made<X509Ptr>(attempt.call([&] { return getX509Cert(pem.c_str()); }));
     }},
    {"encode_x509_jwk", "a chain of two", getsBy,
     [](Attempt& attempt) {
         const std::string chain = device().pem() + intermediate().pem();
         return made<PayloadPtr>(attempt.call([&] {
             return encode_x509_jwk(chain.c_str(), static_cast<unsigned int>(chain.size()));
         }));
     }},
    {"validate_x509_jwk", "its name and its chain", getsBy,
     [](Attempt& attempt) {
         const DeviceFiles files;
         const PayloadPtr record = certificateRecord({device().body()});
         return said(attempt.call([&] { return validate_x509_jwk(record.get(), "device"); }));
     }},
    {"validate_x509_jwk", "another name", getsBy | isRefused,
     [](Attempt& attempt) {
         const DeviceFiles files;
         const PayloadPtr record = certificateRecord({device().body()});
         return gave(attempt.call([&] { return validate_x509_jwk(record.get(), "other"); }));
     }},
    {"get_EC_pubKey", "P-256", getsBy,
     [](Attempt& attempt) {
         return readsPublicKey(attempt, device());
     }},
    {"get_EC_pubKey", "P-384", getsBy,
     [](Attempt& attempt) {
         return readsPublicKey(attempt, largerCurve());
     }},
    {"get_EC_privKey", "a whole key", getsBy,
     [](Attempt& attempt) {
         return readsKey(attempt, deviceKey());
     }},
    {"get_EC_privKey", "a key without its point", getsBy,
     [](Attempt& attempt) {
         return readsKey(attempt, keyWithoutPoint());
     }},
    {"get_EC_privKey", "a key without its curve", getsBy,
     [](Attempt& attempt) {
         return readsKey(attempt, keyWithoutCurve());
     }},
    {"validateKestRootCert", "a certificate", isRefused,
     [](Attempt& attempt) {
         const PayloadPtr record = certificateRecord({device().body()});
         return gave(attempt.call([&] { return validateKestRootCert(record.get()); }));
     }},
    {"removeSubStr", "two occurrences", failsOnly,
     [](Attempt& attempt) {
         std::string text = "a--b--c and a text that is too long for the string itself";
         attempt.call([&] { return removeSubStr(text, "--"); });
         return got(text);
     }},
    {"validateX509", "its name", getsBy,
     [](Attempt& attempt) {
         const std::string pem = device().pem();
         return said(attempt.call([&] { return validateX509(pem.c_str(), "device"); }));
     }},
    {"validateX509", "another name", getsBy | isRefused,
     [](Attempt& attempt) {
         const std::string pem = device().pem();
         return gave(attempt.call([&] { return validateX509(pem.c_str(), "other"); }));
     }},
    {"chainVerify", "one certificate", getsBy,
     [](Attempt& attempt) {
         return verifies(attempt, {device().body()});
     }},
    {"chainVerify", "an intermediate", getsBy,
     [](Attempt& attempt) {
         static const std::string leaf = intermediate().issue({}).body();
         return verifies(attempt, {"", intermediate().body(), leaf});
     }},
    {"chainVerify", "the development root on a device with the marker", getsBy,
     [](Attempt& attempt) {
         static const std::string leaf = developmentRoot().issue({}).body();
         const MarkerFile marker;
         return verifies(attempt, {leaf});
     }},
    {"chainVerify", "a certificate of no root", getsBy | isRefused,
     [](Attempt& attempt) {
         const DeviceFiles files;
         const PayloadPtr record = certificateRecord({stranger().body()});
         const int result = attempt.call([&] { return chainVerify(record.get()); });
         return result == 0 ? got("refused") : result == -1 ? failed() : wrong("verified");
     }},
};

} // namespace

} // namespace faults
