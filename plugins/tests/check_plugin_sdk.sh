#!/bin/sh
# Installs the build into a scratch root and builds the example plug-in (C) and a small
# C++ plug-in against it with nothing but the build's compilers and pkg-config, as an
# author would (a cross build's compilers make plug-ins for the target).
# usage: check_plugin_sdk.sh BUILD_DIR C_COMPILER CXX_COMPILER
set -eu
build_dir=$1
cc=$2
cxx=$3
work=$(mktemp -d /tmp/kerv-sdk-XXXXXX)
trap 'rm -rf "$work"' EXIT

# DESTDIR keeps even a /usr-prefixed build (whose plug-in directory is absolute) inside.
DESTDIR="$work/root" cmake --install "$build_dir" >/dev/null
pc=$(find "$work/root" -name kervutil.pc)
[ -n "$pc" ] || { echo "kervutil.pc was not installed"; exit 1; }
example=$(find "$work/root" -path '*/kerv/examples/cgdcont.c')
[ -n "$example" ] || { echo "the example plug-in's source was not installed"; exit 1; }
export PKG_CONFIG_PATH="$(dirname "$pc")"
export PKG_CONFIG_LIBDIR="$PKG_CONFIG_PATH"
flags=$(pkg-config --cflags --libs kervutil)

# The plug-in must define (not just use) its validator table.
exports_validators() {
  readelf -W --dyn-syms "$1" | awk '$8 == "rmmi_validators" && $7 != "UND" { found = 1 }
                                    END { exit !found }' \
    || { echo "$1 does not export rmmi_validators"; exit 1; }
}

"$cc" -shared -fPIC -Wall -Wextra -Werror -o "$work/libcgdcont.so" "$example" $flags
exports_validators "$work/libcgdcont.so"

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
"$cxx" -shared -fPIC -Wall -Wextra -Werror -o "$work/libecho.so" "$work/echo.cpp" $flags
exports_validators "$work/libecho.so"

# An application of the control socket builds against the installed client library.
cat > "$work/client.c" <<'C'
#include <request.h>
int main(void) { return kerv_connect_request() >= 0 ? 0 : 1; }
C
"$cc" -Wall -Wextra -Werror -o "$work/client" "$work/client.c" \
  $(pkg-config --cflags --libs kervrequest) \
  -Wl,-rpath-link,"$(pkg-config --variable=libdir kervrequest)"
echo "plug-ins and a control client built against the installed SDK"
