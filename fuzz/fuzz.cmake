# Initial cache of the libFuzzer build:  cmake -C fuzz/fuzz.cmake -S . -B build-fuzz
# Every library of the project is compiled with coverage instrumentation
# (-fsanitize=fuzzer-no-link), not only the fuzz programs: the fuzzer can only steer by
# the edges it sees, and the parsers live in the libraries. The programs themselves link
# with -fsanitize=fuzzer (fuzz/CMakeLists.txt).
set(CMAKE_C_COMPILER clang CACHE STRING "")
set(CMAKE_CXX_COMPILER clang++ CACHE STRING "")
set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "")
set(CMAKE_C_FLAGS "-fsanitize=fuzzer-no-link" CACHE STRING "")
set(CMAKE_CXX_FLAGS "-fsanitize=fuzzer-no-link" CACHE STRING "")
set(KERV_SANITIZE "address,undefined" CACHE STRING "")
set(KERV_FUZZ ON CACHE BOOL "")
set(KERV_BUILD_BENCHMARKS OFF CACHE BOOL "")
