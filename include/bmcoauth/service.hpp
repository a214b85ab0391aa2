// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The service layer: what a daemon that issues or judges tokens needs beyond <bmcoauth.hpp>, with the
 * state that the library does not keep. This header includes all of <bmcoauth/service/...>.
 *
 * - Only the safe way compiles: a validator must be told, by name, what to expect and what to ignore.
 * - Every refusal is an Error with a rule. It is for logs, never for the peer.
 * - The time comes from a Clock, which tests replace.
 * - Each class says which threads may call it.
 *
 * Nothing here throws. Containers and functions of the standard library do what they always do when
 * memory runs out. Programs must link libcrypto. */

#include <bmcoauth.hpp>
#include <bmcoauth/service/common.hpp>
#include <bmcoauth/service/issuing.hpp>
#include <bmcoauth/service/judging.hpp>
#include <bmcoauth/service/registrar.hpp>
#include <bmcoauth/service/store.hpp>
#include <bmcoauth/service/token_endpoint.hpp>
#include <bmcoauth/service/verification_keys.hpp>
