"""The plot of the processor times, readable on light and dark backgrounds."""
import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot

INK = "#7d8590"  # has contrast with white and with black
GREY = "#848d97"
MARKS = ((GREY, "o", "none"), (GREY, "o", "full"), ("#0f9d8a", "D", "full"),
         ("#d99a1c", "s", "full"), ("#c9622c", "^", "full"), ("#8f6fc2", "v", "full"),
         ("#3f8fd6", "P", "full"), ("#d1443a", "X", "full"))


def draw(times, operations, file):
    """Draws each client's microseconds per operation; the same values give the same file."""
    matplotlib.rcParams.update({
        "svg.hashsalt": "performance", "font.family": "sans-serif",
        "text.color": INK, "axes.labelcolor": INK, "axes.edgecolor": INK, "xtick.color": INK,
        "ytick.color": INK, "grid.color": INK, "grid.alpha": 0.35})
    figure, axes = pyplot.subplots(figsize=(9, 5), layout="constrained")
    for index, ((name, values), (color, marker, fill)) in enumerate(zip(times.items(), MARKS)):
        # Each client is a little lower than the previous one, so that marks do not overlap.
        rows = [row + (index - len(MARKS) / 2) / 11 for row in range(len(values))]
        axes.plot(values, rows, marker, color=color, fillstyle=fill, markersize=6, label=name)
    axes.set_yticks(range(len(operations)), operations)
    axes.invert_yaxis()
    axes.set_xscale("log")
    axes.xaxis.set_major_formatter("{x:,.0f}")
    axes.set_xlabel("processor time of the client in microseconds, logarithmic axis")
    axes.grid(True)
    axes.spines[["top", "right"]].set_visible(False)
    axes.legend(loc="lower center", bbox_to_anchor=(0.5, 1), ncols=len(times) // 2, frameon=False)
    figure.savefig(file, transparent=True, metadata={"Date": None})
