// SPDX-License-Identifier: Apache-2.0
#include "envelope/sealed_document.hpp"

#include "cli/command.hpp"

namespace bmcoauth::tool
{

SealedDocument::SealedDocument(const std::string& path)
{
    const Json::Value document = readObject(path);
    const bool attached = document.isMember("encrypted_sslcert");
    const auto text = [&](const char* name) {
        // No text of the library holds a zero byte: it would be cut there.
        if (!document[name].isString() || document[name].asString().find('\0') != std::string::npos)
        {
            throw Stop{Exit::invalid,
                       nameOf(path) + " is not an envelope: it needs the strings ciphertext, mac "
                                      "and iv, or encrypted_sslcert, HMAC and iv"};
        }
        return document[name].asString();
    };
    ciphertext = text(attached ? "encrypted_sslcert" : "ciphertext");
    mac = text(attached ? "HMAC" : "mac");
    iv = text("iv");
}

} // namespace bmcoauth::tool
