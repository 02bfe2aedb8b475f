"""Record builders: a record's numbers from named arguments, in the order the
front-end reads them (docs/protocol.md, section 4).

A block whose arguments are not given is absent, as it is for an object whose
flag is off: ``solid(1, "Sphere", colour=red)`` is the 11-number record of a
sphere with p = 0 and c = 1. The builders do not format anything: a server
checks a record when it is queued (`SimulationServer.add`) and writes it out
when the cycle is finished.
"""

from .numbers import DOUBLE, FLOAT

try:
    import numpy as _np
except ImportError:
    _np = None


class Record:
    """One record of a cycle: its num field, its numbers and what reads them.

    `kind` (the front-end's kind name) and `precision` ("float", "double" or
    None) are checked against a registry when one is in use.
    """

    __slots__ = ("num", "values", "kind", "precision")

    def __init__(self, num, values, kind=None, precision=None):
        self.num = int(num)
        self.values = values
        self.kind = kind
        self.precision = precision

    def __len__(self):
        return _size(self.values)

    def __repr__(self):
        return "Record(%d, %s, %d numbers)" % (self.num, self.kind or "?", len(self))


def _size(values):
    return values.size if _np is not None and isinstance(values, _np.ndarray) else len(values)


class Colour:
    """The 11-number colour block: colour, material and edges.

    Every field is sent in every record, so the defaults (VTK's own) replace
    whatever the client application set for the object.
    """

    __slots__ = ("values",)

    def __init__(self, rgb=(1.0, 1.0, 1.0), diffuse=1.0, specular=0.0, specular_power=1.0,
                 opacity=1.0, edges=False, edge_rgb=(0.0, 0.0, 0.0)):
        r, g, b = rgb
        er, eg, eb = edge_rgb
        self.values = (r, g, b, diffuse, specular, specular_power, opacity,
                       1.0 if edges else 0.0, er, eg, eb)

    def __repr__(self):
        return "Colour(%r)" % (self.values,)


Color = Colour

#: The tail of each solid kind's positioned block: (argument, numbers).
SOLID_TAILS = {
    "Sphere": (("radius", 1),),
    "Arrow": (("scale", 1),),
    "Cylinder": (("radius", 1), ("height", 1)),
    "Cone": (("radius", 1), ("height", 1)),
    "DiskSource": (("inner_radius", 1), ("outer_radius", 1)),
    "Cube": (("lengths", 3),),
    "HalfPipe": (("radius_min", 1), ("radius_max", 1), ("length", 1)),
    "RegularPolygon": (("normal", 3), ("radius", 1)),
    "Plane": (),
    "PolygonC": (),
    "File3DSImporter": (),
}


def _colour_block(colour):
    if isinstance(colour, Colour):
        return colour.values
    if len(colour) == 3:  # a bare RGB triple, the rest at its defaults
        return Colour(colour).values
    if len(colour) == 11:
        return tuple(colour)
    raise ValueError("a colour is a Colour, an (r, g, b) triple or the 11 numbers of the block")


def _triple(name, value):
    if value is None or len(value) != 3:
        raise ValueError("%s needs 3 numbers (x, y, z), got %r" % (name, value))
    return value


def _placement(position, origin, turns):
    if len(position) == len(origin) == len(turns) == 3:
        return [*position, *origin, *turns]
    for name, value in (("position", position), ("origin", origin), ("turns", turns)):
        _triple(name, value)


def solid(num, kind, position=None, origin=(0.0, 0.0, 0.0), turns=(0.0, 0.0, 0.0),
          colour=None, **tail):
    """A solid's record: the positioned block (when `position` is given: then
    `origin`, the `turns` in degrees, which are increments, and the kind's
    tail from `SOLID_TAILS`), then the colour block (when `colour` is given).

    >>> solid(1, "Sphere", position=(0, 2, 0), radius=0.25)
    Record(1, Sphere, 10 numbers)
    """
    layout = SOLID_TAILS.get(kind)
    if layout is None:
        raise ValueError("unknown solid kind %r (one of %s)" % (kind, ", ".join(SOLID_TAILS)))
    if position is not None:
        values = _placement(position, origin, turns)
        for name, width in layout:
            value = tail.pop(name, None)
            if value is None:
                raise TypeError("a positioned %s record needs %s" % (kind, name))
            if width == 1:
                values.append(value)
            else:
                values += _triple(name, value)
    else:
        values = []
    if tail:
        known = {name for name, _ in layout}
        if set(tail) <= known:
            raise ValueError("%s belongs to the positioned block, which needs position"
                             % ", ".join(sorted(tail)))
        raise TypeError("%s takes no %s" % (kind, ", ".join(sorted(set(tail) - known))))
    if colour is not None:
        values += colour.values if type(colour) is Colour else _colour_block(colour)
    return Record(num, values, kind, FLOAT)


def text(num, value=None, position=None, origin=(0.0, 0.0, 0.0), turns=(0.0, 0.0, 0.0),
         colour=None):
    """A VectorText record: the shown number (when `value` is given: flag t),
    the common positioned block without tail (`position`), the colour block."""
    values = [] if value is None else [value]
    if position is not None:
        values += _placement(position, origin, turns)
    if colour is not None:
        values += _colour_block(colour)
    return Record(num, values, "VectorText", FLOAT)


def _flat(name, values, count=None):
    if _np is not None and isinstance(values, _np.ndarray):
        values = values.ravel()
    if count is not None and _size(values) != count:
        raise ValueError("%s needs %d numbers, got %d" % (name, count, _size(values)))
    return values


def _join(parts):
    """One sequence of the parts: a NumPy array when any part is one."""
    if _np is not None and any(isinstance(p, _np.ndarray) for p in parts):
        return _np.concatenate([_np.asarray(p, dtype=_np.float64).ravel() for p in parts])
    out = []
    for p in parts:
        out.extend(p)
    return out


def grid(num, position=None, origin=(0.0, 0.0, 0.0), turns=(0.0, 0.0, 0.0), lengths=None,
         corner=None, magnitudes=None, vectors=None, vector_scale=1.0, cells=None):
    """A PlanarGrid record: the positioned block (`position`, `origin`,
    `turns`, then the grid's `lengths` and its first `corner`, which shows from
    the next record on), the vector block (`magnitudes`: n, `vectors`: 3n, flat
    or n x 3, `vector_scale`), the cell colours (`cells`: n, x fastest)."""
    parts = []
    if position is not None:
        parts.append(_placement(position, origin, turns) + list(_triple("lengths", lengths))
                     + list(_triple("corner", corner)))
    n = None
    if magnitudes is not None or vectors is not None:
        if magnitudes is None or vectors is None:
            raise ValueError("the vector block needs both magnitudes and vectors")
        magnitudes = _flat("magnitudes", magnitudes)
        n = _size(magnitudes)
        parts += [magnitudes, _flat("vectors", vectors, 3 * n), (vector_scale,)]
    if cells is not None:
        parts.append(_flat("cells", cells, n))
    return Record(num, _join(parts), "PlanarGrid", FLOAT)


def trail(num, x, y):
    """A TrailQwt record, in double precision: one point (scalars; appends
    when the trail takes one point per batch) or k points (sequences of k x
    values and k y values, which replace the curve)."""
    if _np is not None and isinstance(x, _np.ndarray):
        batch = x.ndim > 0
    else:
        batch = hasattr(x, "__len__")
    if batch:
        x, y = _flat("x", x), _flat("y", y)
        if _size(x) != _size(y):
            raise ValueError("a trail batch needs as many x as y values (%d, %d)"
                             % (_size(x), _size(y)))
        return Record(num, _join([x, y]), "TrailQwt", DOUBLE)
    return Record(num, [x, y], "TrailQwt", DOUBLE)


def readout(num, value):
    """A DisplayDouble record: the value to show."""
    return Record(num, [value], "DisplayDouble", FLOAT)


def number_field_enabled(num, enabled):
    """A NumberField record (enable flag above 0): whether the field is enabled."""
    return Record(num, [1.0 if enabled else 0.0], "NumberField", FLOAT)


def empty(num):
    """A record without numbers (``num,#``), for objects whose records are
    read and ignored, such as a ScalarBar: each still counts in the cycle."""
    return Record(num, [], None, None)
