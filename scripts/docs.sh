#!/usr/bin/env bash
# Makes the reference of the public headers with Doxygen: build/reference/html, which an installation takes along. Ends
# with 1 and Doxygen's words when it has anything to complain of.
#   scripts/docs.sh [FOLDER]     default: build/reference
set -euo pipefail
cd "$(dirname "$0")/.."

out=${1:-build/reference}
mapfile -t headers < <(sed -n 's/^  \(\S*\.h\))\{0,1\}$/src\/\1/p' src/*/CMakeLists.txt)
mkdir -p "$out"
if ! doxygen - >"$out/doxygen.log" 2>&1 <<END; then
PROJECT_NAME = gvx
PROJECT_BRIEF = "What plug-ins and users of the core compile against"
PROJECT_NUMBER = $(sed -n 's/^project(gvx VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
INPUT = ${headers[*]}
INPUT_FILTER = "python3 scripts/lib/doxygen_comments.py"
INCLUDE_PATH = src
STRIP_FROM_PATH = src
STRIP_FROM_INC_PATH = src
OUTPUT_DIRECTORY = $out
GENERATE_LATEX = NO
HAVE_DOT = NO
EXTRACT_ALL = YES
JAVADOC_AUTOBRIEF = YES
MARKDOWN_SUPPORT = NO
AUTOLINK_SUPPORT = NO
MACRO_EXPANSION = YES
EXPAND_ONLY_PREDEF = YES
PREDEFINED = __attribute__(x)=
QUIET = YES
WARN_AS_ERROR = FAIL_ON_WARNINGS
END
  cat "$out/doxygen.log" >&2
  exit 1
fi
echo "${#headers[@]} headers: $out/html/index.html"
