// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "calls.hpp"

#include <functional>
#include <string>
#include <vector>

/** What takes the most stack: functions that read a text of somebody else's, and texts and lists
 *  for them. */
namespace calls
{

struct TextReader
{
    const char* name;
    std::function<void(const std::string& text)> read;
};

/** All functions that parse JSON. */
[[nodiscard]] std::vector<TextReader> readers(Inputs& inputs);

/** Objects nested @p depth deep, around a value that is not written on the fast path. */
[[nodiscard]] std::string nestedObjects(int depth);

/** The same of arrays, with a comment that must be written again. */
[[nodiscard]] std::string nestedArrays(int depth);

/** "x5c" values for a device of an authority whose chain to @p root takes @p count intermediate
 *  certificates. */
[[nodiscard]] std::vector<std::string> longChain(const support::Identity& root, int count);

/** A token with a signature by a key of @p largestRsaKey, which has not made it. */
[[nodiscard]] std::string largestRsaToken(const std::string& algorithm);

/** A public key of OpenSSL's longest modulus, 16,384 bits, as PEM. */
[[nodiscard]] HeapText largestRsaKey();

} // namespace calls
