"""Simulation servers for Orlavex front-ends, in Python.

The package speaks the server's half of the wire protocol (docs/protocol.md):
`SimulationServer` runs the exchange cycles, `orlavex.records` builds each
kind's record from named arguments, and `Registry` reads the front-end's
registry description so that every record is checked before it is sent.
It needs only the standard library; NumPy, when present, speeds up large
arrays.
"""

from . import records
from .errors import (FrontEndClosed, OrlavexError, ProtocolError, RegistryError,
                     Timeout)
from .numbers import encode_record, format_numbers
from .records import Color, Colour, Record
from .registry import Registry
from .server import SimulationServer

__version__ = "0.1.0"

__all__ = [
    "SimulationServer", "Registry", "Record", "Colour", "Color", "records",
    "encode_record", "format_numbers",
    "OrlavexError", "ProtocolError", "FrontEndClosed", "RegistryError", "Timeout",
]
