"""Draws with gnuplot. The background is white, so that the plots can be read in light and in dark mode."""

import subprocess

COLOURS = {"tidewrack": "#0060c0", "limit": "#909090", "shadow git": "#d05000", "restic": "#008060", "borg": "#9030a0",
           "first snapshot": "#0060c0", "first snapshot, limit": "#90b8e0",
           "nothing changed": "#d05000", "nothing changed, limit": "#e8b090"}
HEAD = """
set terminal svg size 820,500 background rgb 'white' font 'sans-serif,14'
set output '{file}'
set title "{title}"
set xlabel '{x}'
set ylabel '{y}'
set grid ytics lc rgb '#d8d8d8'
set border 3
set tics nomirror
set key {key}
"""


def draw(file, script):
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    with open(file) as drawn:
        text = drawn.read()
    with open(file, "w") as drawn:
        drawn.writelines(line.rstrip() + "\n" for line in text.splitlines())


def block(number, points):
    return f"$d{number} << EOD\n" + "".join(f"{x} {y}\n" for x, y in points) + "EOD\n"


def lines(file, series, title, axes, key, logarithmic):
    """series: name to pairs of numbers; axes: the names of both."""
    script = HEAD.format(file=file, title=title, x=axes[0], y=axes[1], key=key)
    if logarithmic:
        script += "set logscale xy\nset format x '%.0s%c'\nset grid xtics\nset autoscale xfix\n"
    drawn = []
    for number, (name, points) in enumerate(series.items()):
        script += block(number, points)
        drawn.append(f"$d{number} with linespoints lw 2 pt 7 ps 0.6 lc rgb '{COLOURS[name]}' title '{name}'")
    draw(file, script + "plot " + ", ".join(drawn) + "\n")


def bars(file, groups, title, y):
    """groups: pairs of a group's name and the values of each contender; logarithmic, because they lie far apart."""
    names = [name for name in COLOURS if any(name in values for _, values in groups)]
    script = HEAD.format(file=file, title=title, x="", y=y, key="outside top center horizontal")
    script += "set logscale y\nset style fill solid noborder\nset boxwidth 1\nset grid ytics\nset yrange [*:*]\n"
    step = len(names) + 1.5
    ticks = ", ".join(f'"{group}" {position * step + (len(names) - 1) / 2}'
                      for position, (group, _) in enumerate(groups))
    script += f"set xtics ({ticks}) scale 0 font ',12'\nset xrange [-1:{len(groups) * step - 1}]\n"
    drawn = []
    for number, name in enumerate(names):
        script += block(number, [(position * step + number, values[name])
                                 for position, (_, values) in enumerate(groups) if name in values])
        drawn.append(f"$d{number} with boxes lc rgb '{COLOURS[name]}' title '{name}'")
    draw(file, script + "plot " + ", ".join(drawn) + "\n")
