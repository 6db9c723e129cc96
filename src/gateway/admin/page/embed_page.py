#!/usr/bin/env python3
"""Turns the status page into a source file: embed_page.py PAGE.html PAGE.cpp. The policy names the digests of the one
style and the one script that the page holds, so that a browser runs nothing else."""
import base64
import hashlib
import pathlib
import re
import sys

CHUNK = 8000  # a string literal may not be much longer


def only(tag, page):
    found = re.findall(f"<{tag}>(.*?)</{tag}>", page, re.S)
    if len(found) != 1:
        sys.exit(f"the page has {len(found)} of <{tag}>, not one")
    return base64.b64encode(hashlib.sha256(found[0].encode()).digest()).decode()


def literal(text):
    parts = [text[at:at + CHUNK] for at in range(0, len(text), CHUNK)]
    return "\n".join(f'R"page({part})page"' for part in parts)


def main():
    source, target = map(pathlib.Path, sys.argv[1:])
    page = source.read_text(encoding="utf-8")
    policy = ("default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; connect-src 'self'; "
              f"img-src data:; style-src 'sha256-{only('style', page)}'; script-src 'sha256-{only('script', page)}'")
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text('#include "gateway/admin/status_page.h"\n\nnamespace gvx {\n\n'
                      f'const char* const kStatusPage =\n{literal(page)};\n'
                      f'const char* const kStatusPagePolicy = "{policy}";\n\n}}  // namespace gvx\n', encoding="utf-8")


main()
