# SPDX-License-Identifier: Apache-2.0
"""The layers of src/: what each folder may use, beside itself."""

LAYERS = {
    "common": [],
    "crypto": ["common"],
    "keys": ["common", "crypto"],
    "oauth2/jwt": ["common", "crypto", "keys"],
    "oauth2/authorize": ["common", "crypto", "keys", "oauth2/jwt"],
    "oauth2/oauth-register": ["common", "crypto", "keys"],
}
