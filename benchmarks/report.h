// How the programs in this folder that are made of Google Benchmark print what they have measured: a line each, the
// median time of one of what its name says, and beside it what else is worth knowing.
#pragma once

namespace kavo::benchmarks {

// Runs what the command line asks for; the status of the process.
int run_benchmarks(int argc, char** argv);

}  // namespace kavo::benchmarks
