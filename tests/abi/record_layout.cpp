// SPDX-License-Identifier: Apache-2.0
#include "record_layout.h"
