"""InstrumentState: the whole measurement settings of a sensor, field for field
as the C record has them (same names), with its arrays as tuples."""
import ctypes
import dataclasses

from ._library import InstrumentStateC, ResponsePointC, RESPONSE_POINTS


def _default(ctype):
    if issubclass(ctype, ctypes.Array):
        if issubclass(ctype._type_, ctypes.Structure):
            return tuple((0.0, 0.0) for _ in range(ctype._length_))
        return tuple(ctype._type_().value for _ in range(ctype._length_))
    return ctype().value


def _python_type(ctype):
    if issubclass(ctype, ctypes.Array):
        return tuple
    return float if ctype is ctypes.c_double else int


_FIELDS = [(name, _python_type(ctype), dataclasses.field(default=_default(ctype)))
           for name, ctype in InstrumentStateC._fields_]


def _from_c(cls, record):
    values = {}
    for name, ctype in InstrumentStateC._fields_:
        value = getattr(record, name)
        if name == "Response":
            value = tuple((p.Frequency, p.Amplitude) for p in value)
        elif issubclass(ctype, ctypes.Array):
            value = tuple(value)
        values[name] = value
    return cls(**values)


def _to_c(self):
    record = InstrumentStateC()
    for name, ctype in InstrumentStateC._fields_:
        value = getattr(self, name)
        if name == "Response":
            points = list(value)[:RESPONSE_POINTS]
            points += [(0.0, 0.0)] * (RESPONSE_POINTS - len(points))
            value = (ResponsePointC * RESPONSE_POINTS)(*(ResponsePointC(f, a) for f, a in points))
        elif issubclass(ctype, ctypes.Array):
            value = ctype(*value)
        setattr(record, name, value)
    return record


def _response_points(self):
    """The response points in use: (frequency Hz, amplitude dB) pairs."""
    return list(self.Response[:max(0, min(self.NumberOfResponsePoints, RESPONSE_POINTS))])


InstrumentState = dataclasses.make_dataclass(
    "InstrumentState", _FIELDS,
    namespace={"from_c": classmethod(_from_c), "to_c": _to_c,
               "response_points": property(_response_points),
               "__doc__": "The measurement settings of a sensor, as the C record InstrumentState.",
               "__module__": __name__})
