"""kra2 from Python: simulation results as numpy arrays, the per-instance waveform statistics
of `run`/`saveResult`, and EMIR databases.

    import kra2
    results = kra2.open("examples/demo.raw")
    tran = results["tran"]
    v = tran["n3_3"]                     # numpy view of the mapped file, no copy
    stats = kra2.measure(tran, "examples/demo.net", 0, 12e-9, ac=True)

numpy is needed for the arrays, not for `import kra2`.
"""
import os as _os

# The run's idle OpenMP threads sleep instead of spinning (as the kra2 executable arranges
# for itself): on a shared machine spinning threads take the working ones' time. libgomp
# reads the variable when the extension loads it, hence before the import below.
_os.environ.setdefault("OMP_WAIT_POLICY", "passive")

from ._kra2 import Analysis, Error, Results, check_em, measure  # noqa: E402
from . import db

__all__ = ["Analysis", "Error", "Results", "check_em", "db", "measure", "open"]


def open(path):  # noqa: A001 - the name a user looks for
    """Opens simulation results (a raw or PSF file, or a folder of them) like openSimData;
    raises kra2.Error with the reader's message when they cannot be read."""
    return Results(str(path))
