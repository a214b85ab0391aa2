// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The interface for programs in C++20 and later: header-only, over <bmcoauth.h>, whose comments say
 * what each function promises. It lies in <bmcoauth/cpp/...>, a header for each subject, each of
 * which can be included alone; this one includes them all. What is different here:
 *
 * - What the library hands out has an owner: Text, Bytes, Texts, and a class for each record. They
 *   can be moved, not copied, and release by the right function; texts and bytes are wiped first.
 *   One that has been moved from is empty: what is asked of it is absent or refused.
 * - What goes in is std::string_view and std::span, borrowed for the call. The library wants texts
 *   that end with a zero byte, so each is copied and the copy wiped. A text that holds a zero byte
 *   would be cut there, and might then pass for another: it is refused. A default
 *   std::string_view is the empty text; what may be absent is a std::optional.
 * - A token is refused if its header or payload holds a zero byte in a string or a name. Strings of
 *   other documents that are read end at their first zero byte, as in C.
 * - Views (std::string_view, std::span, TextRange, Claims) live as long as the object that they come
 *   from. Taking one from a temporary does not compile, or clang warns of it; keep the object in a
 *   variable, or copy the text: `const std::string copy{*call()}`. Objects of parameters, such as
 *   TokenPlan and DelegationRules, borrow what is put into them, and take no temporary arrays.
 * - A failure is an Expected, made as std::expected is, without a value. Its `error` says by which
 *   rule the library, or a function here, refused, what it saw and what it wanted; `describe` is
 *   all of it in one line. It is for logs, never for the peer. Functions that answer yes or no
 *   (isProven, CertificateKey::isValid) give an Expected<void>: a condition that says why not.
 * - What a token says can be read from a VerifiedToken, and such an object comes out of a
 *   validation that succeeded, from nowhere else. See Verdict.
 *
 * Nothing here throws, whether the program is compiled with exceptions or without: what would make
 * the library throw is refused before. To read the value of an Expected that has none ends the
 * program (std::abort). Memory that runs out is an error, except where the library itself ends the
 * process, and where a function takes or gives a std::string or Json::Value, which then do what
 * they always do.
 *
 * The names are in an inline namespace, so that a program's copies of these functions never share a
 * symbol with those of another version of these headers in one process.
 *
 * Not here is what C++ has no use for: the allocation that ends the process (o2_ff_*), the copying
 * and printing of records, the buffer that an envelope is put together in (secure_*,
 * convertHextoBinary), removeSubStr, replaceDoc, parseJWT, which is validateToken, and those that
 * always give the same (client_register, parse_register_response, validateKestRootCert).
 *
 * Who calls a function here that has to do with EC_KEY, X509 or Json::Value links libcrypto or
 * jsoncpp; pkg-config names both. */

#include <bmcoauth.h>
#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/authorize.hpp>
#include <bmcoauth/cpp/certificates.hpp>
#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/ecies.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/error.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/handshake.hpp>
#include <bmcoauth/cpp/issuing.hpp>
#include <bmcoauth/cpp/json.hpp>
#include <bmcoauth/cpp/key_file.hpp>
#include <bmcoauth/cpp/key_records.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/language.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/refusal.hpp>
#include <bmcoauth/cpp/registration.hpp>
#include <bmcoauth/cpp/signing.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/cpp/validation.hpp>
