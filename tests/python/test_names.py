# One table of RIL names: the dissector's Lua tables and the tools' C++ table
# (rilproxy-host --list-names) must list the same ids under the same names.
import os
import re
import subprocess

from conftest import TOP

LUA = os.path.join(TOP, "tools", "wireshark", "zok_ril.lua")
TABLES = {"request_names": "request", "unsol_names": "unsol", "result_names": "result"}


def lua_rows():
    rows, table = set(), None
    with open(LUA) as f:
        for line in f:
            start = re.match(r"local (\w+) = \{$", line.strip())
            if start:
                table = TABLES.get(start.group(1))
            elif line.strip() == "}":
                table = None
            elif table:
                row = re.fullmatch(r'\[(\d+)\] = "(\w+)",', line.strip())
                assert row, "not a one-row line in %s: %r" % (table, line)
                rows.add((table, int(row.group(1)), row.group(2)))
    return rows


def test_the_dissector_and_the_tools_name_every_id_alike(runner_path):
    out = subprocess.run([runner_path, "--list-names"], capture_output=True, check=True).stdout
    tools = {(k, int(i), n) for k, i, n in (l.split() for l in out.decode().splitlines())}
    lua = lua_rows()
    assert {k for k, _, _ in lua} == set(TABLES.values())
    assert sorted(lua - tools) == [] and sorted(tools - lua) == []
