# Plots of a benchmark run: gnuplot -e "dir='build/bench'" bench/plots.gp
# latency.png: distribution of the sequential round-trip latencies (engine, plain UDP
# ping-pong, libmodbus); scaling.png: CPU time per request against requests accepted at
# once, and aggregate rate against channels.
set terminal pngcairo size 900,560 noenhanced
d = dir . '/data/'

set output dir . '/latency.png'
set title 'Sequential round trips on loopback: latency distribution'
set xlabel 'latency (microseconds, log scale)'
set ylabel 'fraction of requests at or below'
set logscale x
set key bottom right
set grid
plot d.'lat_engine.dat' using 1:2 with lines lw 2 title 'libtransfer (one UDP channel)', \
     d.'lat_pingpong.dat' using 1:2 with lines lw 2 title 'plain UDP ping-pong (same frames)', \
     d.'lat_modbus.dat' using 1:2 with lines lw 2 title 'libmodbus, Modbus/TCP'

set output dir . '/scaling.png'
set multiplot layout 1,2 title 'Scaling'
set title 'CPU per request vs requests accepted at once'
set xlabel 'requests accepted at once (log scale)'
set ylabel 'CPU microseconds per completed request'
set logscale x
set yrange [0:*]
set key top left
plot d.'scaling.dat' using 1:2 with linespoints lw 2 pt 7 title 'libtransfer, 32 channels'
set title 'Aggregate rate vs channels'
set xlabel 'channels (one board each)'
set ylabel 'requests per second'
unset logscale x
set xrange [0:*]
plot d.'parallel.dat' using 1:2 with linespoints lw 2 pt 7 title 'libtransfer'
unset multiplot
