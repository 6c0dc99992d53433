"""Lists the contents of the given smb URLs, one after the other, in one libsmbclient context."""

import json
import sys

import smbc

password, urls = sys.argv[1], sys.argv[2:]


def credentials(_server, _share, workgroup, _user, _password):
    return workgroup, "nas", password


context = smbc.Context(auth_fn=credentials)
for url in urls:
    entries = context.opendir(url).getdents()
    print(json.dumps(sorted(x.name for x in entries if not x.name.startswith("."))), flush=True)
