# One horizontal bar per row of a benchmark's table, with the row's target
# as a black mark across its bar: green where the target is met, red where
# it is missed, grey where the row has none.
#
#   gnuplot -c bars.gp ROWS.tsv CHART.png HEADING UNIT FORMAT
#
# ROWS.tsv: label, value, target (NaN for none), verdict (met, MISSED or -),
# separated by tabs.  Each value is printed with FORMAT (for printf), then
# UNIT, at the end of its bar.
set datafile separator "\t"
further(value, target) = target > value ? target : value
stats ARG1 using (further($2, valid(3) ? $3 : 0)) nooutput
rows = STATS_records

set terminal pngcairo size 900, 140 + 34 * rows font ",10"
set output ARG2
set title ARG3
set xrange [0:STATS_max * 1.25]
set yrange [-rows + 0.4:0.6]
set xtics nomirror
set ytics nomirror scale 0
set grid xtics lc rgb "#dddddd"
set border 3
set key off
set style fill solid 0.85 noborder
set style textbox opaque noborder margins 1, 1

shade(verdict) = verdict eq "met" ? 0x2e7d32 : verdict eq "MISSED" ? 0xc62828 : 0x90a4ae
plot ARG1 using ($2 / 2):(-$0):($2 / 2):(0.32):(shade(strcol(4))):ytic(1) \
        with boxxyerror lc rgb variable, \
     '' using 3:(-$0 - 0.42):(0):(0.84) with vectors nohead lw 3 lc rgb "#000000", \
     '' using 2:(-$0):(sprintf(ARG5, $2) . ARG4) with labels left offset 0.5, 0 boxed
