// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The service layer: what a daemon that issues or judges tokens has beyond <bmcoauth.hpp>, with the
 * state that the library does not keep. It lies in <bmcoauth/service/...>; this header includes all
 * of it.
 *
 * - Here the safe way is the only one that compiles: what a validator is to look at is expected or
 *   ignored by name.
 * - Every refusal is an Error with a rule. It is for logs, never for the peer.
 * - The time comes from a Clock that the parts are given.
 * - Classes that hold state say which threads may call them.
 *
 * Nothing here throws of its own accord. Containers and functions of the standard library are used:
 * where memory runs out, those do what they always do. Programs must link libcrypto. */

#include <bmcoauth.hpp>
#include <bmcoauth/service/common.hpp>
#include <bmcoauth/service/issuing.hpp>
#include <bmcoauth/service/judging.hpp>
#include <bmcoauth/service/registrar.hpp>
#include <bmcoauth/service/store.hpp>
#include <bmcoauth/service/token_endpoint.hpp>
#include <bmcoauth/service/verification_keys.hpp>
