// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace bmcoauth::internal::jwt
{

/** Whether verifyWithPem knows @p algorithm, as far as the first of its characters tells. */
[[nodiscard]] bool isForPublicKeys(std::string_view algorithm) noexcept;

/** Whether @p signature signs @p signingInput by the public key in the PEM text @p pem with the
 *  JSON Web Algorithm @p algorithm (RFC 7518, section 3.1).
 *
 *  Lenient towards the name, as callers know it: the first character alone, in either case, decides
 *  between RSA ("R", "P") and ECDSA ("E"), the last three decide the digest, and only an upper-case
 *  "P" means RSASSA-PSS. An ECDSA signature is either the two integers side by side or DER. */
[[nodiscard]] bool verifyWithPem(std::string_view signingInput, std::string_view signature,
                                 std::string_view pem, std::string_view algorithm);

} // namespace bmcoauth::internal::jwt
