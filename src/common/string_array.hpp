// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace bmcoauth::internal
{

/** Releases the texts of a null-ended array, then the array; does nothing if it is null. */
void releaseStringArray(char** array) noexcept;

/** Owns a string array: a heap array of heap texts, ended by a null pointer. */
using StringArray = std::unique_ptr<char*, Releaser<releaseStringArray>>;

/** The number of texts before the end; 0 for null. */
[[nodiscard]] std::size_t countStrings(const char* const* array) noexcept;

/** Room for @p count texts and the end, all null; null when memory runs out. */
[[nodiscard]] StringArray emptyStringArray(std::size_t count) noexcept;

/** A deep copy, of an array without texts too; null when memory runs out or @p array is null. */
[[nodiscard]] StringArray copyStringArray(const char* const* array) noexcept;

/** Like copyStringArray, but also null, with `document.empty` noted, if there is no text to
 *  copy. */
[[nodiscard]] StringArray copyFilledArray(const char* const* array) noexcept;

} // namespace bmcoauth::internal
