# Plots of a benchmark run: gnuplot -e "dir='build/bench'" bench/plots.gp
# latency.png: distribution of the sequential round-trip latencies (engine, plain UDP
# ping-pong, libmodbus; dashed: the same with every core kept busy by hog processes);
# scaling.png: CPU time per request and the monitor's CPU time per wake-up against
# requests accepted at once, and aggregate rate against channels (engine and plain
# ping-pong sockets).
set terminal pngcairo size 900,560 noenhanced
d = dir . '/data/'

set output dir . '/latency.png'
set title 'Sequential round trips on loopback: latency distribution'
set xlabel 'latency (microseconds, log scale)'
set ylabel 'fraction of requests at or below'
set logscale x
set key bottom right
set grid
plot d.'lat_engine.dat' using 1:2 with lines lw 2 lc 1 title 'libtransfer (one UDP channel)', \
     d.'lat_pingpong.dat' using 1:2 with lines lw 2 lc 2 title 'plain UDP ping-pong (same frames)', \
     d.'lat_modbus.dat' using 1:2 with lines lw 2 lc 3 title 'libmodbus, Modbus/TCP', \
     d.'lat_engine_hog.dat' using 1:2 with lines lw 2 lc 1 dt 2 title 'libtransfer, cores busy', \
     d.'lat_pingpong_hog.dat' using 1:2 with lines lw 2 lc 2 dt 2 title 'ping-pong, cores busy', \
     d.'lat_modbus_hog.dat' using 1:2 with lines lw 2 lc 3 dt 2 title 'libmodbus, cores busy'

# Only when the scaling and parallel cases ran (--only may leave them out).
if (system('test -s '.d.'scaling.dat && test -s '.d.'parallel.dat && echo 1') eq '1') {
    set output dir . '/scaling.png'
    set multiplot layout 1,2 title 'Scaling'
    set title 'CPU per request vs requests accepted at once'
    set xlabel 'requests accepted at once (log scale)'
    set ylabel 'CPU microseconds'
    set logscale x
    set yrange [0:*]
    set key bottom left Left reverse
    plot d.'scaling.dat' using 1:2 with linespoints lw 2 pt 7 title 'process, per request', \
         d.'scaling.dat' using 1:4 with linespoints lw 2 pt 5 title 'monitor thread, per wake-up'
    set title 'Aggregate rate vs channels'
    set xlabel 'channels (one board each)'
    set ylabel 'requests per second'
    unset logscale x
    set xrange [0:*]
    set key top left Left reverse
    plot d.'parallel.dat' using 1:2 with linespoints lw 2 pt 7 title 'libtransfer', \
         d.'pingpong_parallel.dat' using 1:2 with linespoints lw 2 pt 5 title 'ping-pong, a thread per board'
    unset multiplot
}
