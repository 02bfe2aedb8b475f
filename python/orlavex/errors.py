"""The exceptions of the package: one base class, one class per way a session ends badly."""


class OrlavexError(Exception):
    """Base class of every error this package raises on purpose."""


class ProtocolError(OrlavexError):
    """The front-end sent something the protocol does not allow (a client ack
    that is not 0x00, a malformed data message)."""


class FrontEndClosed(OrlavexError, ConnectionError):
    """The front-end closed or reset the connection: the session is over."""


class Timeout(OrlavexError, TimeoutError):
    """A wait for the front-end ran past the server's time limit."""


class RegistryError(OrlavexError, ValueError):
    """A record does not match what the front-end reads for its num field
    (unknown num, wrong kind, wrong count), or a registry description is
    unreadable. Raised before anything goes on the wire."""
