// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "documents.hpp"

#include <string>
#include <utility>
#include <vector>

namespace bmcoauth::tool
{

using PayloadPtr = std::unique_ptr<HandshakePayload, Releaser<free_handshake_payload>>;

/** A certificate key: a list of certificates and what speaks of them, as the library takes it. */
class CertificateKey
{
public:
    /** Reads the PEM chain or the certificate key @p path, or the first certificate key of a
     *  register request or response. Of a PEM file only the certificates are taken, whatever
     *  stands around them. */
    explicit CertificateKey(const std::string& path);

    /** The key in the form in which most functions take it: the address of a pointer. */
    [[nodiscard]] HandshakePayload** address()
    {
        return &pointer;
    }

    [[nodiscard]] HandshakePayload* get() const
    {
        return pointer;
    }

    /** The number of its certificates, 1 or more. */
    [[nodiscard]] std::size_t size() const
    {
        return count;
    }

    /** The document of the key. "x5c" is an array even of a single certificate (RFC 7517). */
    [[nodiscard]] Json::Value document() const;

private:
    PayloadPtr owned;
    HandshakePayload* pointer = nullptr;
    std::size_t count = 0;
};

/** Stops the command unless both factory root files can be read: without them every chain is
 *  refused, and nothing says why. */
void requireFactoryRoots();

/** Reads a parameter list: the document @p path, or the object @p member of a document that holds
 *  one, such as a register response with its "handshake_challenge". */
[[nodiscard]] PayloadPtr readPayload(const std::string& path, const std::string& member);

/** Prints the document of @p payload. */
void printPayload(HandshakePayload* payload);

/** The number of values of the parameter @p name. */
[[nodiscard]] std::size_t countValues(HandshakePayload* payload, const char* name);

/** An envelope: what `ecies seal` prints, or what a handshake response carries. */
struct SealedDocument
{
    SealedDocument() = default;
    explicit SealedDocument(const std::string& path);

    std::string ciphertext;
    std::string mac;
    std::string iv;
};

/** A null-ended array of texts or records for the library, which only reads it. */
template <typename Pointer>
class NullEnded
{
public:
    void add(Pointer pointer)
    {
        pointers.back() = pointer;
        pointers.push_back(nullptr);
    }

    /** The array, or null for an empty one, as the library writes an empty list. */
    [[nodiscard]] Pointer* data()
    {
        return pointers.size() == 1 ? nullptr : pointers.data();
    }

private:
    std::vector<Pointer> pointers{nullptr};
};

/** Copies of @p texts in an array for the library. */
class TextList
{
public:
    explicit TextList(std::vector<std::string> texts) : copies{std::move(texts)}
    {
        for (std::string& copy : copies)
        {
            array.add(copy.data());
        }
    }
    TextList(const TextList&) = delete;
    TextList& operator=(const TextList&) = delete;
    TextList(TextList&&) = delete;
    TextList& operator=(TextList&&) = delete;
    ~TextList() = default;

    [[nodiscard]] char** data()
    {
        return array.data();
    }

private:
    std::vector<std::string> copies;
    NullEnded<char*> array;
};

} // namespace bmcoauth::tool
