// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <string>

namespace bmcoauth::tool
{

/** An envelope: what `ecies seal` prints, or what a handshake response carries. */
struct SealedDocument
{
    SealedDocument() = default;
    explicit SealedDocument(const std::string& path);

    [[nodiscard]] EnvelopeView view() const
    {
        return {ciphertext, mac, iv};
    }

    std::string ciphertext;
    std::string mac;
    std::string iv;
};

} // namespace bmcoauth::tool
