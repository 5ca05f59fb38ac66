#!/bin/sh
# Installs the build into a scratch prefix and builds the example plug-in (C) and a small
# C++ plug-in against it with nothing but the compiler and pkg-config, as an author would.
# usage: check_plugin_sdk.sh BUILD_DIR SOURCE_DIR
set -eu
build_dir=$1
source_dir=$2
work=$(mktemp -d /tmp/kerv-sdk-XXXXXX)
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
pc=$(find "$work/prefix" -name kervutil.pc)
[ -n "$pc" ] || { echo "kervutil.pc was not installed"; exit 1; }
export PKG_CONFIG_PATH="$(dirname "$pc")"
flags=$(pkg-config --cflags --libs kervutil)

cc -shared -fPIC -Wall -Wextra -Werror -o "$work/libcgdcont.so" \
  "$work/prefix/share/kerv/examples/cgdcont.c" $flags
nm -D --defined-only "$work/libcgdcont.so" | grep -q ' rmmi_validators$' \
  || { echo "libcgdcont.so does not export rmmi_validators"; exit 1; }

cat > "$work/echo.cpp" <<'CPP'
#include <kerv_plugin.h>
#include <cstring>
static kal_bool echo_validator(rmmi_string_struct *cmd, char *out, int *out_len) {
    kal_uint8 cause = RMMI_PARSE_OK;
    const kal_uint32 value = rmmi_int_validator_ext(&cause, cmd, ',', '\r');
    *out_len = kal_sprintf(out, "\r\n+ECHO: %u\r\n\r\nOK\r\n", value);
    return cause == RMMI_PARSE_OK ? KAL_TRUE : KAL_FALSE;
}
extern "C" {
rmmi_validator_t rmmi_validators[] = {
    {(char *)"+echo", 0, 0, nullptr, echo_validator}, {nullptr, 0, 0, nullptr, nullptr}};
}
CPP
c++ -shared -fPIC -Wall -Wextra -Werror -o "$work/libecho.so" "$work/echo.cpp" $flags
nm -D --defined-only "$work/libecho.so" | grep -q ' rmmi_validators$' \
  || { echo "libecho.so does not export rmmi_validators"; exit 1; }
echo "plug-ins built against the installed kervutil"
