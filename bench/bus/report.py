"""The table of what has been measured, the bars, and the plot."""
from math import log10
from statistics import median

import bars
import clients
import measure
import share


def number(value, form="{:,.0f}"):
    return "-" if value is None else form.format(value)


def middle(values):
    return None if values is None else median(values)


def microseconds(nanoseconds):
    return number(nanoseconds and nanoseconds / 1000, "{:,.1f}")


def calls(pair):
    return "-" if pair is None else bars.shown_calls(pair)


def operations(results):
    """One block for each operation, one line for each client."""
    yield (f"{'':42}{'wall us':>10}{'CPU us':>9}{'instructions':>14}{'calls':>7}"
           f"{'wall/B':>9}{'CPU/B':>8}{'instr/B':>9}{'wall/A':>9}{'CPU/A':>8}{'instr/A':>9}")
    for operation, (title, _, _) in measure.OPERATIONS.items():
        yield f"{operation:3} {title}"
        for kind in clients.KINDS:
            key = kind.name, operation
            ratios = [number(bars.ratio(results[what], kind, base, operation), "{:.3f}")
                      for base in (clients.FLOOR, clients.RAW)
                      for what in ("wall", "processor", "instructions")]
            yield (f"      {kind.name:36}{microseconds(middle(results['wall'].get(key))):>10}"
                   f"{microseconds(middle(results['processor'].get(key))):>9}"
                   f"{number(results['instructions'].get(key)):>14}"
                   f"{calls(results['calls'].get(key)):>7}"
                   + "".join(f"{text:>{width}}" for text, width in zip(ratios, (9, 8, 9) * 2)))


def shares(results):
    yield "Where the instructions of S above B go"
    yield f"{'':42}" + "".join(f"{name:>12}" for name in share.SHARES) + f"{'together':>12}"
    for operation, (title, _, _) in measure.OPERATIONS.items():
        counted = [results["shares"][operation][name] for name in share.SHARES]
        yield (f"{operation:3} {title:38}"
               + "".join(f"{value:>12,}" for value in (*counted, sum(counted))))


def floods(results):
    for side in measure.SIDES:
        yield f"7   wait for a job, with signals of other jobs {side} the reply"
        for count in measure.FLOODS:
            for kind in measure.FLOODED:
                processor, wall, memory = results["flood"][kind.name, side, count]
                instructions = results["flood instructions"]
                each = None
                if count and (kind.name, side, count) in instructions:
                    each = bars.per_signal(instructions, kind, side, count)
                yield (f"      {count:>7,} {kind.name:24}{wall / 1e6:>11,.1f} ms wall"
                       f"{processor / 1e6:>11,.1f} ms CPU{memory:>10,} KiB"
                       f"{number(each):>9} instructions per signal")


def table(results):
    for line in results["machine"]:
        yield line
    yield ""
    yield from operations(results)
    yield ""
    yield from shares(results)
    yield ""
    yield from floods(results)
    yield ""
    yield "Peak memory after operations 1 to 6"
    for name, memory in results["memory"].items():
        yield f"      {name:36}{memory:>10,} KiB"
    yield ""
    yield "Bars"
    for met, what, value, limit in bars.all_bars(results):
        yield f"      {'met   ' if met else 'MISSED'} {what:68}{value:>10}  bar {limit}"


SHOWN = (clients.RAW, clients.FLOOR, clients.LIBRARY, clients.SDBUS_CPP, clients.GDBUS,
         clients.PYTHON, clients.GO, clients.SYSTEMCTL)
COLORS = ("#9aa5b1", "#52606d", "#0b7a75", "#e8a33d", "#b5651d", "#7b5ea7", "#3a86c8", "#c0392b")


def plot(results):
    """Processor time of each operation by client, as SVG with a logarithmic axis."""
    width, row, left, scale = 860, 12, 250, 120
    drawn, top = [], 40
    for index, kind in enumerate(SHOWN):
        x = left + index * 75
        drawn.append(f'<rect x="{x}" y="8" width="10" height="10" fill="{COLORS[index]}"/>'
                           f'<text x="{x + 13}" y="17">{kind.name}</text>')
    for operation, (title, _, _) in measure.OPERATIONS.items():
        drawn.append(f'<text x="8" y="{top + 11}">{operation} {title}</text>')
        for index, kind in enumerate(SHOWN):
            value = median(results["processor"][kind.name, operation]) / 1000
            length = max(1.0, log10(value) * scale)
            drawn.append(
                f'<rect x="{left}" y="{top}" width="{length:.0f}" height="{row - 2}" '
                f'fill="{COLORS[index]}"/>'
                f'<text x="{left + length + 4:.0f}" y="{top + 9}">{value:,.0f}</text>')
            top += row
        top += row
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{top + 24}" '
        'font-family="sans-serif" font-size="10">',
        '<rect width="100%" height="100%" fill="white"/>', *drawn,
        f'<text x="{left}" y="{top + 10}">processor time of the client, in microseconds, '
        'logarithmic</text>', "</svg>", ""])
