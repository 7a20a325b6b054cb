"""The figures of `python -m kra2.report`, drawn with matplotlib (no display needed) and
handed back as PNG bytes."""
import io

COLUMNS = ("peak", "avg", "rms")


def _pyplot():
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    return plt


def _png(figure):
    buffer = io.BytesIO()
    figure.savefig(buffer, format="png", dpi=96, bbox_inches="tight")
    _pyplot().close(figure)
    return buffer.getvalue()


def histograms(results):
    """Histograms of peak, avg and rms of the analysed instances, on log-spaced bins."""
    import numpy as np
    plt = _pyplot()
    figure, axes = plt.subplots(1, 3, figsize=(12, 3.2))
    for ax, column in zip(axes, COLUMNS):
        values = results[column][results["valid"]]
        values = values[values > 0]
        if len(values):
            low, high = values.min(), values.max()
            bins = np.geomspace(low, high * 1.0001 if high > low else low * 2, 30)
            ax.hist(values, bins=bins, color="#3b6ea5", edgecolor="white")
            ax.set_xscale("log")
        ax.set_title(f"{column} ({len(values)} instances > 0)")
        ax.set_xlabel(column)
        ax.set_ylabel("instances")
    figure.tight_layout()
    return _png(figure)


def waveforms(curves, time_range=None):
    """One panel per instance: the difference node1 - node2 over time, the peak marked.
    `curves` holds (title, time, difference, peak time, peak)."""
    plt = _pyplot()
    figure, axes = plt.subplots(len(curves), 1, figsize=(12, 2.2 * len(curves)), squeeze=False)
    for ax, (title, time, difference, peak_time, peak) in zip(axes[:, 0], curves):
        ax.plot(time * 1e9, difference, color="#3b6ea5", linewidth=1.0)
        ax.axvline(peak_time * 1e9, color="#c0392b", linewidth=0.8, linestyle="--")
        if time_range is not None:
            for edge in time_range:
                ax.axvline(edge * 1e9, color="#7f8c8d", linewidth=0.8, linestyle=":")
        ax.set_title(f"{title}: peak {peak:.4g} at {peak_time * 1e9:.4g} ns", fontsize=10)
        ax.set_ylabel("node1 - node2")
        ax.grid(alpha=0.3)
    axes[-1, 0].set_xlabel("time (ns)")
    figure.tight_layout()
    return _png(figure)


def grid_map(x, y, values, label):
    """The pieces of the power grid at their (x, y), coloured by `values`."""
    plt = _pyplot()
    figure, ax = plt.subplots(figsize=(7, 6))
    points = ax.scatter(x, y, c=values, cmap="inferno", s=36, edgecolors="none")
    figure.colorbar(points, ax=ax, label=label)
    ax.set_xlabel("x")
    ax.set_ylabel("y")
    ax.set_aspect("equal", adjustable="datalim")
    ax.set_title(f"power grid coloured by {label}")
    figure.tight_layout()
    return _png(figure)
