# SPDX-License-Identifier: Apache-2.0
"""The layers of src/ and tools/: what each folder may use, beside itself."""

LAYERS = {
    "common": [],
    "testing": ["common"],
    "crypto": ["common"],
    "keys": ["common", "crypto"],
    "oauth2/jwt": ["common", "crypto", "keys"],
    "oauth2/authorize": ["common", "crypto", "keys", "oauth2/jwt"],
    "oauth2/oauth-register": ["common", "crypto", "keys"],
}

# The folders of tools/, and the files beside them.
TOOL_LAYERS = {
    "cli": [],
    "document": ["cli"],
    "key": ["cli"],
    "device": ["cli"],
    "token": ["cli", "key"],
    "certificate": ["cli", "document", "key"],
    "envelope": ["certificate", "cli", "key"],
    "handshake": ["certificate", "cli", "document", "envelope", "key"],
    "": ["cli"],
}
