// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/json.hpp"
#include "common/parameter_list.hpp"
#include "keys/jwk.hpp"

#include <new>

namespace bmcoauth::internal::registration
{

/** An array with an object for each key of @p list, which is not null. */
[[nodiscard]] Json::Value arrayOfKeys(const jwk* const* list);
[[nodiscard]] Json::Value arrayOfCertificates(const HandshakePayload* const* list,
                                              const ListForm& form);

/** Reads the member @p name of @p object as a list of keys. A member that is missing, no array or
 *  empty leaves @p list as it is. False when an element is no such key. Throws std::bad_alloc. */
[[nodiscard]] bool readKeys(const Json::Value& object, const char* name, keys::KeyList& list);
[[nodiscard]] bool readCertificates(const Json::Value& object, const char* name,
                                    keys::CertificateKeyList& list);

} // namespace bmcoauth::internal::registration
