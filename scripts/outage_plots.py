"""Draws the distributions that scripts/outages measures, as SVG."""

PANEL_WIDTH, PANEL_HEIGHT, COLUMNS = 250, 128, 3
PLOT_WIDTH, PLOT_HEIGHT = 220, 60
LEFT, TOP = 15, 74
COLORS = {"engine": "#b5541c", "corrections": "#1c6bb5"}
NAMES = {"engine": "engine alone", "corrections": "all corrections"}
STYLE = ("text { font: 11px sans-serif; fill: #333 } .name { font-weight: bold } .end { text-anchor: end } "
         ".frame { fill: #fff; stroke: #999 } path { fill: none; stroke-width: 1.8 }")


def curve(values, longest, left, top):
    """The share of values that are at most so long, as a path of steps."""
    steps = [f"M{left} {top + PLOT_HEIGHT}"]
    for value in sorted(set(values)):
        share = sum(one <= value for one in values) / len(values)
        steps.append(f"H{left + value / longest * PLOT_WIDTH:.0f}V{top + (1 - share) * PLOT_HEIGHT:.1f}")
    return "".join([*steps, f"H{left + PLOT_WIDTH}"])


def panel(number, event, values):
    left = LEFT + number % COLUMNS * PANEL_WIDTH
    top = TOP + number // COLUMNS * PANEL_HEIGHT
    longest = max(10, max(max(values[way]) for way in COLORS))
    unit = event.measure.text if event.measure.answer == "claims" else f"s {event.measure.text}"
    yield f'<text x="{left}" y="{top - 20}" class="name">{event.correction}</text>'
    yield f'<text x="{left}" y="{top - 6}">{event.name}</text>'
    yield f'<rect x="{left}" y="{top}" width="{PLOT_WIDTH}" height="{PLOT_HEIGHT}" class="frame"/>'
    yield f'<text x="{left}" y="{top + PLOT_HEIGHT + 13}">0</text>'
    yield (f'<text x="{left + PLOT_WIDTH}" y="{top + PLOT_HEIGHT + 13}" class="end">'
           f'{longest} {unit}</text>')
    for way, color in COLORS.items():
        yield f'<path d="{curve(values[way], longest, left, top)}" stroke="{color}"/>'


def svg(events, results):
    panel_rows = (len(events) + COLUMNS - 1) // COLUMNS
    width, height = 2 * LEFT + COLUMNS * PANEL_WIDTH - 30, 38 + panel_rows * PANEL_HEIGHT
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}">',
             f"<style>{STYLE}</style>", f'<rect width="{width}" height="{height}" fill="#fafafa"/>',
             f'<text x="{LEFT}" y="18">share of routers for which it lasts at most so long:</text>']
    for place, (way, color) in enumerate(COLORS.items()):
        lines.append(f'<text x="{400 + 100 * place}" y="18" style="fill: {color}">{NAMES[way]}</text>')
    for number, (event, values) in enumerate(zip(events, results)):
        lines += panel(number, event, values)
    return "\n".join([*lines, "</svg>", ""])
