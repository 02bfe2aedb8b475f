"""Number text for record strings: every number must read back exactly.

The front-end reads scene records in single precision (the decimal text is
parsed as a double, then rounded to float) and trail records in double
precision. So:

- in single-precision records each number is rounded to float32 here, as the
  front-end would round it, and written with 9 significant digits, which
  read back to that float32 ("%.9g" is also more than twice as fast as
  repr); large NumPy arrays (a grid's cell colours) go through a vectorised
  formatter that writes 15-character ``d.ddddddddde±XX`` or
  ``-d.dddddddde±XX`` text, about five times faster than "%"-formatting;
- in double-precision records, and where the precision is not known, numbers
  are written in their shortest round-trip form (repr), which reads back to
  the same double (and so to the same float where the front-end rounds).

Values that are not finite are refused unless the caller passes
``allow_nonfinite=True``: the front-end would turn them into a NaN position
or silently drop a trail batch. Single-precision values beyond the float
range are refused in any case, since the front-end cannot represent them.
"""

import math
from array import array
from functools import lru_cache

try:
    import numpy as _np
except ImportError:  # the package works without NumPy, only slower on big arrays
    _np = None

FLOAT = "float"
DOUBLE = "double"
FLT_MAX = 3.4028234663852886e38

#: Arrays of at least this many single-precision numbers take the vectorised path.
VECTOR_MIN = 48


@lru_cache(maxsize=256)
def _format(n, fmt):
    # A prebuilt "%r,%r,...,%r" beats ",".join(map(repr, ...)) by about a third.
    return (fmt + ",") * (n - 1) + fmt if n else ""


def _refuse(values, precision, allow_nonfinite):
    """Raises ValueError naming the first value that cannot be sent (if any)."""
    for i, v in enumerate(values):
        v = float(v)
        if not math.isfinite(v):
            if allow_nonfinite:
                continue
            raise ValueError(
                "number %d of the record is %r; only finite values can be sent "
                "(pass allow_nonfinite=True to send it anyway)" % (i, v))
        if precision == FLOAT and abs(v) > FLT_MAX:
            raise ValueError(
                "number %d of the record is %r, beyond single precision (about 3.4e38), "
                "which this record is read in" % (i, v))


if _np is not None:
    _U = _np.uint64
    _tables = []
    _E0 = 210  # exponent offset of the tables: float32 exponents and the zero bucket
    _ZERO = 3e-200  # what zeros are raised to, in a bucket no float32 reaches

    def _build_tables():
        # By a 5-digit number x (digits x0..x4) and, from 100000 on, the same
        # for a negative number: the bytes that x puts into a number's two
        # little-endian words as the mantissa's first five digits (with the
        # sign and the point) and as its last five (of which a negative
        # number keeps four).
        x = _np.arange(100000, dtype=_U)
        d = [(x // _U(10 ** (4 - j))) % _U(10) + _U(48) for j in range(5)]

        def at(*parts):
            word = _np.zeros(100000, _U)
            for byte, part in parts:
                word |= (part if isinstance(part, _np.ndarray) else _U(part)) << _U(8 * byte)
            return word
        dot, minus = ord("."), ord("-")
        # Positive: d0 . d1 d2 d3 d4 d5 d6 | d7 d8 d9; negative: - d0 . d1 d2 d3 d4 d5 | d6 d7 d8.
        head = [at((0, d[0]), (1, dot), (2, d[1]), (3, d[2]), (4, d[3]), (5, d[4])),
                at((0, minus), (1, d[0]), (2, dot), (3, d[1]), (4, d[2]), (5, d[3]), (6, d[4]))]
        mid0 = [at((6, d[0]), (7, d[1])), at((7, d[0]))]
        mid1 = [at((0, d[2]), (1, d[3]), (2, d[4])), at((0, d[1]), (1, d[2]), (2, d[3]))]
        # By exponent + _E0: "e", the exponent's sign and two digits and the
        # separator (bytes 3 to 7 of the second word), and the scale that
        # brings the mantissa to ten digits. Zeros are raised to _ZERO, whose
        # exponent has a bucket of its own: its scale gives the mantissa
        # 1000000000, which passes the check for misplaced exponents and is
        # then made 0.
        e = _np.arange(-_E0, _E0 // 4)
        ae = _np.abs(e).astype(_U)
        tail = ((_U(ord("e")) << _U(24)) | (_np.where(e < 0, 45, 43).astype(_U) << _U(32))
                | ((ae // _U(10) + _U(48)) << _U(40)) | ((ae % _U(10) + _U(48)) << _U(48))
                | (_U(ord(",")) << _U(56)))
        scale = _np.array([float("1e%d" % (9 - k)) for k in e])
        zero = int(_np.floor(_np.log10(_ZERO))) + _E0
        tail[zero] = tail[_E0]
        scale[zero] = 1e9 / _ZERO
        _tables[:] = [_np.concatenate(head), _np.concatenate(mid0), _np.concatenate(mid1),
                      tail, scale]

    def _fixed16(v):
        """Text of float32 values held in a float64 array, 16 bytes each (the
        last number's separator included), as a uint8 array.

        A number is ``d.ddddddddde±XX,``: its mantissa rounded to 10
        significant digits, or, when negative, ``-d.dddddddde±XX,``: the same
        10 digits with the last one cut off. Either text lies within 1.1e-8
        of the value, relatively, well inside the half-spacing of float32
        numbers (at least 3e-8), so it reads back to the same float32; the
        mantissa's rounding error in double precision is far smaller still.
        Each number is built as two 64-bit words from table lookups, in few
        whole-array steps: a grid of a few thousand numbers is bound by the
        count of NumPy calls, not by its size.
        """
        if not _tables:
            _build_tables()
        head, mid0, mid1, tail, scale = _tables
        a, negative, zeros = v, None, False
        if v.min() <= 0:
            negative = _np.signbit(v)
            a = _np.abs(v)
            zeros = a.min() == 0
            if zeros:
                a = _np.maximum(a, _ZERO)
        ei = (_np.log10(a) + float(_E0)).astype(_np.intp)
        m = a * scale[ei]
        _np.rint(m, out=m)
        if m.max() >= 1e10 or m.min() < 1e9:
            # log10 can be off by one next to a power of ten.
            wrong = _np.nonzero((m >= 1e10) | (m < 1e9))[0]
            ew = ei[wrong] + _np.where(m[wrong] >= 1e10, 1, -1)
            ei[wrong] = ew
            m[wrong] = _np.rint(a[wrong] * scale[ew])
        if zeros:  # 1000000000 to 0000000000
            m -= (a == _ZERO) * 1e9
        hi = _np.floor(m / 1e5)
        lo = (m - hi * 1e5).astype(_np.intp)
        hi = hi.astype(_np.intp)
        if negative is not None:  # the negative half of the tables
            offset = _np.multiply(negative, 100000, dtype=_np.intp)
            hi += offset
            lo += offset
        out = _np.empty((v.size, 2), _U)
        _np.bitwise_or(head[hi], mid0[lo], out=out[:, 0])
        _np.bitwise_or(mid1[lo], tail[ei], out=out[:, 1])
        if not _np.little_endian:
            out.byteswap(inplace=True)
        return out.reshape(-1).view(_np.uint8)

    def _format_array(arr, precision, allow_nonfinite):
        arr = arr.ravel()
        if arr.dtype != _np.float64 and arr.dtype != _np.float32:
            arr = arr.astype(_np.float64)
        n = arr.size
        if n == 0:
            return b""
        finite = bool(_np.isfinite(arr).all())
        if not finite and not allow_nonfinite:
            _refuse(arr.tolist(), precision, False)
        if precision == FLOAT and finite:
            with _np.errstate(over="ignore"):
                single = arr.astype(_np.float32)
            if not _np.isfinite(single).all():
                _refuse(arr.tolist(), precision, allow_nonfinite)
            if n >= VECTOR_MIN:
                return _fixed16(single.astype(_np.float64))[:-1].tobytes()
            arr = single
        fmt = "%.9g" if arr.dtype == _np.float32 else "%r"
        return (_format(n, fmt) % tuple(arr.tolist())).encode("ascii")
else:
    _format_array = None


def format_numbers(values, precision=None, allow_nonfinite=False):
    """The comma-separated text of `values` as bytes, without a terminator.

    `precision` is ``"float"`` (scene records), ``"double"`` (trails) or None
    when unknown (written so that it reads back exactly in either).
    """
    if _format_array is not None and isinstance(values, _np.ndarray):
        return _format_array(values, precision, allow_nonfinite)
    if not isinstance(values, (list, tuple)):
        values = list(values)  # read twice when a value is refused
    if precision == FLOAT:
        # Rounded to single precision here, as the front-end would round
        # them; nine digits then read back to the same float, and "%.9g" is
        # more than twice as fast as repr. Beyond the float range a value
        # becomes an infinity, which the check below catches.
        vals = array("f", values).tolist()
        text = _format(len(vals), "%.9g") % tuple(vals)
    else:
        vals = list(map(float, values))  # also turns NumPy scalars and bools into floats
        text = _format(len(vals), "%r") % tuple(vals)
    # "nan" and "inf" are the only texts with an "n" in them.
    if "n" in text:
        _refuse(values, precision, allow_nonfinite)
    return text.encode("ascii")


def encode_record(num, values, precision=None, allow_nonfinite=False):
    """The record string ``num,v0,...,vk#`` as bytes (``num,#`` when empty)."""
    return b"%d,%s#" % (num, format_numbers(values, precision, allow_nonfinite))


def hold_single(values):
    """The numbers of a single-precision record, checked now and held for
    `encode_held` as float32: a copy of an array (so that later changes to
    the caller's array do not leak in), or an array.array("f").
    ValueError as in `format_numbers`."""
    if _np is not None and isinstance(values, _np.ndarray):
        arr = values.ravel()
        # min and max are NaN when a NaN is among the values.
        if arr.size and not (-FLT_MAX <= arr.min() and arr.max() <= FLT_MAX):
            _refuse(arr.tolist(), FLOAT, False)
        return arr.astype(_np.float32)
    if not isinstance(values, (list, tuple)):
        values = list(values)  # read twice when a value is refused
    single = array("f", values)  # beyond the float range: an infinity
    total = sum(single)  # NaN or an infinity when one is among the values
    if total - total != 0:
        _refuse(values, FLOAT, False)
    return single


def encode_held(held):
    """Record strings of [(num, numbers from hold_single)], each as a tuple of
    bytes-like parts, formatted together: a cycle's single-precision numbers
    take one pass of the vectorised formatter instead of one per record."""
    total = sum(len(values) for _, values in held)
    if _np is None or total < VECTOR_MIN:
        return [(b"%d," % num, format_numbers(values, FLOAT), b"#") for num, values in held]
    pieces, run = [], array("f")
    for _, values in held:
        if isinstance(values, array):
            run += values
        else:
            if run:
                pieces.append(_np.frombuffer(run, _np.float32))
                run = array("f")
            pieces.append(values)
    if run:
        pieces.append(_np.frombuffer(run, _np.float32))
    single = _np.concatenate(pieces) if len(pieces) > 1 else pieces[0]
    text = memoryview(_fixed16(single.astype(_np.float64)))
    out, start = [], 0
    for num, values in held:
        end = start + len(values)
        out.append((b"%d," % num, text[16 * start:16 * end - 1], b"#"))
        start = end
    return out
