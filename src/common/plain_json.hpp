// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace bmcoauth
{

/* What nearly every document consists of, read and written without what jsoncpp spends on making a
 * reader or a writer for each text. Both know when they meet anything else, and leave the whole of
 * it to jsoncpp, which says what a document means. */

/** Reads @p text into @p tree as jsoncpp would, offsets included. False, with @p tree as it was,
 *  unless the text is an object, nested a few levels deep, of texts, integers, Booleans and nulls
 *  without comments or escaped code points. What jsoncpp would refuse is never read. */
[[nodiscard]] bool readPlainJson(std::string_view text, Json::Value& tree);

/** Appends the compact text form of @p tree to @p text as jsoncpp would write it. False, with a part
 *  of it appended, when the tree holds a real number, a comment, or a text that is not ASCII. */
[[nodiscard]] bool appendPlainJson(const Json::Value& tree, std::string& text);

} // namespace bmcoauth
