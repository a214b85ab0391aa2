// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The interface for programs in C++20 and later: header-only, over <bmcoauth.h>, whose comments say
 * what each function promises. The parts are in <bmcoauth/cpp/...>, a header for each subject. Each
 * can be included alone; this one includes them all. The differences from C:
 *
 * - Results have owners: Text, Bytes, Texts, and a class for each record. They can be moved, not
 *   copied, and free their contents by the right function; texts and bytes are wiped first. An
 *   owner that has been moved from is empty: its members are absent or refuse.
 * - Arguments are std::string_view and std::span, borrowed for the call. The library needs texts
 *   that end with a zero byte, so each is copied and the copy wiped. A text that holds a zero byte
 *   is refused: cut there, it could look like another one. A default std::string_view is the
 *   empty text; optional arguments are a std::optional.
 * - A token is refused if its header or payload holds a zero byte in a string or a name. Strings
 *   read from other documents end at their first zero byte, as in C.
 * - Views (std::string_view, std::span, TextRange, Claims) live as long as the object that they come
 *   from. Taking one from a temporary does not compile, or clang warns of it; keep the object in a
 *   variable, or copy the text: `const std::string copy{*call()}`. Objects of parameters, such as
 *   TokenPlan and DelegationRules, borrow their members and do not accept temporary arrays.
 * - A failure is an Expected without a value, like std::expected. Its `error` has the rule that
 *   refused, the data seen and the data wanted; `describe` puts all of it on one line. It is for
 *   logs, never for the peer. Functions that answer yes or no (isProven, CertificateKey::isValid)
 *   return an Expected<void>: a condition that says why not.
 * - Claims are read from a VerifiedToken. Only a successful validation gives one: see Verdict.
 *
 * Nothing here throws, whether the program is compiled with exceptions or without: arguments for
 * which the library would throw are refused before. Reading the value of an Expected that has none
 * ends the program (std::abort). Exhausted memory is an error, except where the library itself ends
 * the process, and where a function takes or returns a std::string or Json::Value, which behave as
 * always.
 *
 * The names are in an inline namespace, so that a program's copies of these functions never share a
 * symbol with those of another version of these headers in one process.
 *
 * Some C functions have no counterpart because C++ does not need them: the allocation that ends the
 * process (o2_ff_*), copying and printing of records, the buffer in which an envelope is put
 * together (secure_*, convertHextoBinary), removeSubStr, replaceDoc, parseJWT (validateToken), and
 * functions that always return the same (client_register, parse_register_response,
 * validateKestRootCert).
 *
 * Programs that call functions taking EC_KEY, X509 or Json::Value must link libcrypto or jsoncpp;
 * pkg-config names both. */

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
