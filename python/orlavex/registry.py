"""The front-end's registry description: for each num field the kind, its
flags and the ordered fields its record carries; and the controls whose
changes come in the data message, by index (and by name, when it names them).

A front-end writes it with ``CommThread::writeRegistry(path)``. With it a
server checks every record before it goes on the wire, and can build records
by field name (`Registry.build`).
"""

import json
import re

from .errors import RegistryError
from .records import Colour, Record, _flat, _join

FORMAT = "orlavex-registry"
VERSION = 1

# Argument spellings that name a registry field or group another way.
_ALIASES = {"turns": "turn", "lengths": "length", "colour": "color", "rgb": "color",
            "edge_rgb": "edge_color", "edge_colour": "edge_color", "edges": "edge_visibility"}
_COLOUR_FIELDS = ("color_r", "color_g", "color_b", "diffuse", "specular", "specular_power",
                  "opacity", "edge_visibility", "edge_color_r", "edge_color_g", "edge_color_b")


def _snake(name):
    key = re.sub(r"(?<=[a-z0-9])([A-Z])", r"_\1", name).lower().replace(".", "_")
    return _ALIASES.get(key, key)


class Entry:
    """One registered record: num, kind, precision ("float", "double" or
    "none"), flags, fields as (name, count) pairs, total count, ignored."""

    __slots__ = ("num", "kind", "precision", "flags", "fields", "count", "ignored", "_plan")

    def __init__(self, num, kind, precision, flags, fields, count, ignored):
        self.num, self.kind, self.precision = num, kind, precision
        self.flags, self.fields, self.count, self.ignored = flags, fields, count, ignored
        # (name, count, key, group, member, group size) per field, for build().
        plan, groups = [], {}
        for name, n in fields:
            group = _snake(name.split(".")[0]) if "." in name else None
            member = groups.get(group, 0)
            if group:
                groups[group] = member + 1
            plan.append([name, n, _snake(name), group, member])
        self._plan = [tuple(p) + (groups.get(p[3], 0),) for p in plan]

    def field_list(self):
        return ", ".join(name if n == 1 else "%s[%d]" % (name, n) for name, n in self.fields)

    def __repr__(self):
        return "Entry(%d, %s, %d numbers)" % (self.num, self.kind, self.count)


def _control_label(control):
    label = control["kind"]
    if "name" in control:
        label += ' "%s"' % control["name"]
    if "group" in control:
        label += ' (group "%s")' % control["group"]
    return label


def _read_controls(controls, source):
    """The control entries, each a dict of index, kind and, when given, name
    and group; RegistryError for a malformed entry or an index used twice,
    since the server could not tell the two controls' changes apart."""
    out, by_index = [], {}
    for c in controls:
        index = c.get("index") if isinstance(c, dict) else None
        if not isinstance(index, int) or isinstance(index, bool) or not all(
                isinstance(c.get(key, ""), str) for key in ("kind", "name", "group")):
            raise RegistryError("%s has a malformed control entry %r" % (source, c))
        control = {"index": index, "kind": c.get("kind", "control")}
        control.update((key, c[key]) for key in ("name", "group") if key in c)
        if index in by_index:
            raise RegistryError("%s: control index %d is registered twice: %s and %s"
                                % (source, index, _control_label(by_index[index]),
                                   _control_label(control)))
        by_index[index] = control
        out.append(control)
    return out


class Registry:
    """The records a front-end reads, by num field (`records`), and its
    controls (`controls`: dicts with "index" and "kind", and "name" and
    "group" when the description gives them; `control` finds an index by
    name)."""

    def __init__(self, entries, controls=(), library=None, source="the registry description"):
        self.records = {e.num: e for e in entries}
        self.controls = _read_controls(controls, source)
        self.library = library

    @classmethod
    def load(cls, path):
        try:
            with open(path, encoding="utf-8") as f:
                text = f.read()
        except OSError as e:
            raise RegistryError("cannot read the registry description %s: %s"
                                % (path, e.strerror)) from None
        return cls.from_json(text, source=str(path))

    @classmethod
    def from_json(cls, text, source="the registry description"):
        try:
            root = json.loads(text) if isinstance(text, (str, bytes)) else text
        except ValueError as e:
            raise RegistryError("%s is not JSON: %s" % (source, e)) from None
        if not isinstance(root, dict) or root.get("format") != FORMAT:
            raise RegistryError("%s is not an Orlavex registry description" % source)
        if root.get("version") != VERSION:
            raise RegistryError("%s has version %r; this package reads version %d"
                                % (source, root.get("version"), VERSION))
        entries = []
        try:
            for r in root["records"]:
                fields = tuple((f["name"], int(f["count"])) for f in r.get("fields", ()))
                entry = Entry(int(r["num"]), r.get("kind", "?"), r.get("precision", "none"),
                              r.get("flags", {}), fields, int(r.get("count", 0)),
                              bool(r.get("ignored", False)))
                if sum(n for _, n in fields) != entry.count:
                    raise RegistryError("%s: record %d lists %d numbers in its fields but a "
                                        "count of %d" % (source, entry.num,
                                                         sum(n for _, n in fields), entry.count))
                entries.append(entry)
        except (KeyError, TypeError, ValueError) as e:
            if isinstance(e, RegistryError):
                raise
            raise RegistryError("%s has a malformed record entry (%s)" % (source, e)) from None
        controls = root.get("controls", [])
        if not isinstance(controls, list):
            raise RegistryError("%s has a malformed control list" % source)
        return cls(entries, controls, root.get("library"), source)

    def __len__(self):
        return len(self.records)

    def entry(self, num):
        try:
            return self.records[num]
        except KeyError:
            raise RegistryError("record %d is not registered by the front-end (it reads %s)"
                                % (num, self._nums())) from None

    def control(self, name, group=None):
        """The index of the control called `name`; `group` picks among radio
        buttons of that name in different button groups. RegistryError when
        no control, or more than one, answers to it."""
        found = [c for c in self.controls if c.get("name") == name
                 and (group is None or c.get("group") == group)]
        if len(found) == 1:
            return found[0]["index"]
        wanted = '"%s"%s' % (name, "" if group is None else ' in group "%s"' % group)
        if found:
            raise RegistryError("%d controls are called %s (%s): pass group= to pick one"
                                % (len(found), wanted, ", ".join(
                                    "%d %s" % (c["index"], _control_label(c)) for c in found)))
        named = ["%d %s" % (c["index"], _control_label(c)) for c in self.controls if "name" in c]
        raise RegistryError("no control is called %s (named controls: %s)"
                            % (wanted, ", ".join(named) or "none"))

    def _nums(self):
        return ", ".join("%d %s" % (n, e.kind) for n, e in sorted(self.records.items())) or "none"

    def check(self, num, count, kind=None):
        """The entry of `num`; RegistryError when the front-end does not read
        `count` numbers of kind `kind` (None: any kind) for it."""
        entry = self.entry(num)
        if entry.ignored:
            return entry  # read and dropped, whatever it carries
        if kind is not None and kind != entry.kind:
            raise RegistryError("record %d is built as %s, but the front-end registers a %s "
                                "under %d (fields: %s)" % (num, kind, entry.kind, num,
                                                          entry.field_list()))
        if count != entry.count:
            raise RegistryError("record %d (%s) carries %d numbers, the front-end reads %d: %s"
                                % (num, entry.kind, count, entry.count, entry.field_list()))
        return entry

    def check_cycle(self, nums):
        """RegistryError unless `nums` (one per queued record) are exactly as
        many as the front-end reads per cycle."""
        if len(nums) != len(self.records):
            missing = sorted(set(self.records) - set(nums))
            raise RegistryError(
                "the cycle has %d records, the front-end reads %d per cycle%s"
                % (len(nums), len(self.records), "; none queued for " + ", ".join(
                    "%d (%s)" % (n, self.records[n].kind) for n in missing) if missing else ""))

    def build(self, num, **fields):
        """A record of `num` from its field values by name.

        Names are the registry's (``innerRadius``, ``position.x``) or their
        snake-case spelling (``inner_radius``, ``position_x``); a group takes a
        sequence (``position=(x, y, z)``, ``color=(r, g, b)``); ``colour`` takes
        a `Colour` for the whole colour block; array fields take a sequence or
        a NumPy array of their count.
        """
        entry = self.entry(num)
        if entry.ignored:
            if fields:
                raise RegistryError("record %d (%s) is read and ignored: it takes no fields"
                                    % (num, entry.kind))
            return Record(num, [], None, None)
        given = {}
        for key, value in fields.items():
            key = _snake(key)
            if isinstance(value, Colour) and key == "color":
                given.update(zip(_COLOUR_FIELDS, value.values))
            else:
                given[key] = value
        parts, used, missing = [], set(), []
        for name, n, key, group, member, size in entry._plan:
            if key in given:
                value = given[key]
                used.add(key)
            elif group in given:
                seq = given[group]
                used.add(group)
                if len(seq) != size:
                    raise RegistryError("record %d (%s): %s takes %d numbers, got %d"
                                        % (num, entry.kind, group, size, len(seq)))
                value = seq[member]
            else:
                missing.append(name)
                continue
            parts.append(_flat(name, value, n) if n != 1 else (value,))
        unknown = sorted(set(given) - used)
        if missing or unknown:
            raise RegistryError("record %d (%s) reads %s%s%s" % (
                num, entry.kind, entry.field_list(),
                "; missing: " + ", ".join(missing) if missing else "",
                "; not its fields: " + ", ".join(unknown) if unknown else ""))
        precision = entry.precision if entry.precision in ("float", "double") else None
        return Record(num, _join(parts), entry.kind, precision)
