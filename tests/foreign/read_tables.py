#!/usr/bin/env python3
"""read_tables.py CORVANE SCENARIO...: plays scenarios and reads the tables that they leave, by
docs/shared-tables.md and what `corvane records --json` tells and by nothing else. Every table has
to read as `corvane show --json` prints it."""
import ipaddress
import json
import mmap
import os
import struct
import subprocess
import sys
import tempfile

MASK = (1 << 64) - 1
FREE, LIVE = 0, 2


def hash_of(data):
    h = (len(data) + 1) * 0x9E3779B97F4A7C15 & MASK
    for at in range(0, len(data), 8):
        h = (h ^ int.from_bytes(data[at:at + 8], "little")) * 0xD6E8FEB86659FD93 & MASK
        h ^= h >> 32
    h = h * 0xA0761D6478BD642F & MASK
    return h ^ h >> 29


def round_up(size, step):
    return (size + step - 1) // step * step


class Table:
    """One file. `rows` are (key, value, is corrupt)."""

    def __init__(self, path, told):
        with open(path, "rb") as file:
            self.data = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
        magic, version, mark, signature, self.key_size, self.value_size, self.capacity = \
            struct.unpack_from("=8sIIQIII", self.data)
        assert (magic, version, mark) == (b"VeskTab\n", 2, 0x01020304), path
        assert signature == int(told["signature"], 16) == hash_of(told["layout"].encode()), path
        assert (self.key_size, self.value_size) == (told["keySize"], told["valueSize"]), path
        payload = round_up(self.key_size + self.value_size, 8)
        self.stride = 8 + payload
        self.slots = self.capacity + self.capacity // 2 + 1
        journal = max(64, 1 << max(self.capacity // 4 - 1, 0).bit_length())
        self.rows_at = round_up(4096 + self.stride, 64)
        self.index_at = round_up(self.rows_at + self.capacity * self.stride, 64)
        journal_at = round_up(self.index_at + self.slots * 4, 64)
        end = journal_at + journal * 4
        assert struct.unpack_from("=IIIQQQQQ", self.data, 36) == (
            self.stride, self.slots, journal, 4096, self.rows_at, self.index_at, journal_at, end)
        assert len(self.data) == end, path
        count, self.high_water, _, pid = struct.unpack_from("=IIII", self.data, 136)
        assert self.high_water <= self.capacity, path
        assert pid == 0 or not os.path.exists(f"/proc/{pid}"), f"{path}: {pid} has ended"
        self.rows = [row for n in range(self.high_water) if (row := self.row(n))]
        assert len(self.rows) == count, path
        for key, _, is_corrupt in self.rows:
            assert is_corrupt or self.find(key), f"{path}: {key} is not in the index"

    def row(self, number):
        at = self.rows_at + number * self.stride
        word, checksum = struct.unpack_from("=II", self.data, at)
        if word & 6 == FREE:
            return None
        if word & 1:  # an update that was cut short: the undo area has what was there before
            owner, checksum = struct.unpack_from("=II", self.data, 4096)
            at = 4096 if owner == number + 1 else at
        key = self.data[at + 8:at + 8 + self.key_size]
        value = self.data[at + 8 + self.key_size:at + 8 + self.key_size + self.value_size]
        h = hash_of(value)
        good = (hash_of(key) ^ (h << 17 | h >> 47)) & 0xFFFFFFFF
        return key, value, word & 6 != LIVE or checksum != good

    def find(self, key):
        h = hash_of(key)
        row_mask = (1 << self.capacity.bit_length()) - 1
        slot = (h >> 32) * self.slots >> 32
        while entry := struct.unpack_from("=I", self.data, self.index_at + 4 * slot)[0]:
            number = (entry & row_mask) - 1
            if (entry ^ h) & 0xFFFFFFFF & ~row_mask == 0 and number < self.high_water:
                row = self.row(number)
                if row and row[0] == key:
                    return row
            slot = (slot + 1) % self.slots
        return None


class Types:
    """Values from bytes, as text and as JSON."""

    def __init__(self, told):
        self.told = told

    def text(self, name, data):
        """Of a whole value: leaves joined by commas."""
        members = self.told[name].get("members")
        if members is None:
            return self.leaf(name, data)
        return ",".join(self.text(m["type"], part) for m, part in self.split(members, data))

    def split(self, members, data):
        for member in members:
            size = self.told[member["type"]]["size"]
            yield member, data[:size]
            data = data[size:]

    def json(self, name, data, with_key=False):
        members = self.told[name].get("members")
        if members is None:
            text = self.leaf(name, data)
            return "" if text == '""' else text
        shown = {m["name"]: self.json(m["type"], part, True)
                 for m, part in self.split(members, data) if with_key or not m["key"]}
        return next(iter(shown.values())) if len(shown) == 1 and not with_key else shown

    def leaf(self, name, data):
        told = self.told[name]
        return getattr(self, "form_" + told["form"])(data, told)

    def form_unsigned(self, data, _):
        return str(int.from_bytes(data, sys.byteorder))

    def form_bool(self, data, _):
        return "true" if data[0] else "false"

    def form_seconds(self, data, _):
        return str(struct.unpack("=d", data)[0])

    def form_enumeration(self, data, told):
        number = int.from_bytes(data, sys.byteorder)
        names = [name for name, known in told["enumerators"].items() if known == number]
        return names[0] if names else str(number)

    def form_ipv4(self, data, _):
        return str(ipaddress.IPv4Address(data))

    def form_ipv6(self, data, _):
        return str(ipaddress.IPv6Address(data))

    def form_address(self, data, _):
        if data[0] == 0:
            return "none"
        return str(ipaddress.ip_address(data[1:5] if data[0] == 1 else data[1:17]))

    def form_prefix(self, data, _):
        return f"{self.form_address(data[:17], _)}/{data[17]}" if data[0] else "none"

    def form_ipv4Prefix(self, data, _):
        return f"{self.form_ipv4(data[:4], _)}/{data[4]}"

    def form_ipv6Prefix(self, data, _):
        return f"{self.form_ipv6(data[:16], _)}/{data[16]}"

    def form_mac(self, data, _):
        return ":".join(f"{byte:02x}" for byte in data)

    def form_name(self, data, _):
        name = data[1:1 + data[0]].decode()
        plain = name and name.isprintable() and not any(c in ',[]=" ' for c in name)
        return name if plain else '"' + name.replace("\\", "\\\\").replace('"', '\\"') + '"'


def entity_of(mount, types, directory):
    """What the files of a mounted table hold together; None if there is no file."""
    root = {}
    holders = {(): {b"": root}}  # by the collections on the way to them, and by their keys
    found = False
    for told in mount["files"]:
        path = os.path.join(directory, told["file"])
        *way, name = [part["collection"] for part in told["key"]] or [None]
        above = holders[tuple(way)]
        if name:
            holders[(*way, name)] = {}
            for holder in above.values():
                holder[name] = [] if told["kind"] == "set" else {}
        if not os.path.exists(path):
            continue
        found = True
        for key, value, is_corrupt in Table(path, told).rows:
            if name is None:
                root.update(fields(told, types, value))
                continue
            own = types.told[told["key"][-1]["type"]]["size"]
            assert key[:-own] in above, f"{path}: a row without its parent"
            held = above[key[:-own]][name]
            text = types.text(told["key"][-1]["type"], key[-own:])
            if told["kind"] == "set":
                held.append(text)
            elif told["kind"] == "map":
                kind = told["value"][0]["type"]
                held[text] = "(corrupt)" if is_corrupt else types.json(kind, value)
            else:
                held[text] = holders[(*way, name)][key] = fields(told, types, value)
    return root if found else None


def fields(told, types, value):
    members = [{"name": v["name"], "type": v["type"], "key": False} for v in told["value"]]
    return {m["name"]: types.json(m["type"], part, True) for m, part in types.split(members, value)}


def plain(shown, ours):
    """What `show` printed in the form of ours: scalars as text, and without attributes that are in
    no file (an entity's own key, what a reader fills in)."""
    if isinstance(shown, dict):
        kept = ours if isinstance(ours, dict) else {}
        return {k: plain(v, kept[k]) for k, v in shown.items() if k in kept or isinstance(v, (dict, list))}
    if isinstance(shown, list):
        return sorted(plain(member, None) for member in shown)
    return shown if isinstance(shown, str) else json.dumps(shown)


def in_order(value):
    if isinstance(value, dict):
        return {k: in_order(v) for k, v in value.items()}
    return sorted(value) if isinstance(value, list) else value


def leaves(value):
    if isinstance(value, dict):
        return sum(1 + leaves(member) for member in value.values())
    return len(value) if isinstance(value, list) else 0


def main(program, scenarios):
    def tell(*words):
        return subprocess.run([program, *words], check=True, capture_output=True, text=True).stdout

    records = json.loads(tell("records", "--json"))
    types = Types({name: told for r in records for name, told in r["valueTypes"].items()})
    mounts = {m["path"]: m for r in records for m in r["mounts"] if "files" in m}
    tables = values = bad = 0
    for scenario in scenarios:
        with tempfile.TemporaryDirectory() as scratch:
            kept = os.path.join(scratch, "kept")
            tell("play", "--keep", kept, scenario)
            directory = os.path.join(kept, "shm")
            ours = {path: entity_of(mount, types, directory) for path, mount in mounts.items()}
            ours = {path: in_order(entity) for path, entity in ours.items() if entity is not None}
            if not ours:
                continue
            shown = json.loads(tell("show", "--json", "--dir", kept, *ours))
            for path, entity in ours.items():
                tables += 1
                values += leaves(entity)
                if entity != plain(shown[path], entity):
                    bad += 1
                    print(f"{scenario}: {path}\n  by the page {entity}\n  by show     {shown[path]}")
    print(f"{tables} tables of {len(scenarios)} scenarios, {values} values, {bad} differ")
    return 1 if bad or values == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
