"""EMIR databases as numpy structured arrays: `read(path)` and `write(path, ...)`."""
from . import _kra2

IR_FIELDS = ("rms", "avg", "peak", "tpeak", "min", "tmin")
EM_FIELDS = ("rms", "avg", "peak", "tpeak", "avgPos")


class Database:
    """The records and run conditions of a database: `ir` and `em` are structured arrays
    (a `name` field, the float fields in file order, and `term1`, `term2` for EM)."""

    def __init__(self, ir, em, temperature, start, stop, version):
        self.ir, self.em = ir, em
        self.temperature, self.start, self.stop, self.version = temperature, start, stop, version

    def __repr__(self):
        return (f"<kra2.db.Database {len(self.ir)} IR, {len(self.em)} EM records, "
                f"{self.temperature} C, {self.start}..{self.stop} s>")


def _records(columns, float_fields, int_fields=()):
    import numpy as np
    names = columns["name"]
    width = max([len(n) for n in names] + [1])
    dtype = [("name", f"U{width}")] + [(f, "<f8") for f in float_fields]
    dtype += [(f, "<i8") for f in int_fields]
    out = np.zeros(len(names), dtype=dtype)
    out["name"] = names
    for field in float_fields + tuple(int_fields):
        out[field] = columns[field]
    return out


def read(path):
    """Reads every IR and EM record of a database; kra2.Error with the log's message when
    the file cannot be read or is damaged."""
    raw = _kra2.db_read(str(path))
    return Database(_records(raw["ir"], IR_FIELDS), _records(raw["em"], EM_FIELDS,
                                                             ("term1", "term2")),
                    raw["temperature"], raw["start"], raw["stop"], raw["version"])


def _columns(records, fields):
    if records is None:
        return {"name": []}
    columns = {"name": [str(n).encode("utf-8", "surrogateescape") for n in records["name"]]}
    for field in fields:
        columns[field] = records[field]
    return columns


def write(path, ir=None, em=None, temperature=110.0, start=0.0, stop=1e-7):
    """Writes a database of the current format. `ir` and `em` are structured arrays (or dicts
    of columns) with the fields `read` gives; either may be left out."""
    _kra2.db_write(str(path), _columns(ir, IR_FIELDS), _columns(em, EM_FIELDS + ("term1", "term2")),
                   float(temperature), float(start), float(stop))
