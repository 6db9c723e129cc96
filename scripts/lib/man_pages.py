#!/usr/bin/env python3
"""Writes gvxd(8), gvxctl(1) and zvs_gvx.conf(5), compressed, from what the programs print about themselves and from the
comments of the shipped configuration, and bash's completion of gvxctl. Ends with a sentence when one of these has another form than is read here.

usage: man_pages.py GVXD GVXCTL CONFIGURATION FOLDER
"""
import gzip
import pathlib
import re
import subprocess
import sys


def printed(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=True, timeout=60).stdout


def roff(text):
    """Text that roff takes for nothing else."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


class Help:
    """A help text: what the command does, how it is called, and its sections of (name, text)."""

    def __init__(self, text):
        self.about, self.usage, self.sections = "", "", {}
        entries = None
        for line in text.splitlines():
            if line.startswith("Usage: "):
                self.usage = line[len("Usage: "):]
            elif re.fullmatch(r"[A-Z][^:]*:", line):
                entries = self.sections.setdefault(line[:-1], [])
            elif entries is None and not self.usage:
                self.about = f"{self.about} {line}".strip()
            elif match := re.fullmatch(r"  (\S.*?)(?:  +(\S.*))?", line):
                if entries is None:
                    entries = self.sections.setdefault("Members", [])
                entries.append([match[1], match[2] or ""])
            elif line.strip() and entries:
                entries[-1][1] = f"{entries[-1][1]} {line.strip()}".strip()
            elif line.strip():
                self.about += " " + line.strip()
        if not self.usage or not self.sections:
            sys.exit(f"this is no help text: {text[:200]}")


def entries_of(entries):
    return "".join(f".TP\n.B {roff(name)}\n{roff(text) or roff(name)}\n" for name, text in entries)


def exit_codes(text):
    rows = re.findall(r"^ +(\d+)  (.+)$", text[text.index("Exit codes:"):], flags=re.M)
    return ".SH EXIT STATUS\n" + entries_of(rows)


def page(name, section, version, about, body, also):
    also = ", ".join(f"\\fB{roff(other)}\\fR({number})" for other, number in also)
    return (f'.TH {name.upper()} {section} "" "gvx {version}" "gvx"\n.SH NAME\n{roff(name)} \\- {roff(about)}\n{body}'
            f".SH SEE ALSO\n{also}\n.PP\nThe guides lie in /usr/share/doc/gvx.\n")


def gvxd_page(gvxd, version):
    text = printed(gvxd, "--help")
    shown = Help(text)
    body = (f".SH SYNOPSIS\n.B {roff(shown.usage)}\n.SH DESCRIPTION\n"
            "Starts everything in order, listens for platform links, loads plug\\-ins, serves until SIGTERM or SIGINT, and "
            "stops within two seconds. Settings stand in\n.BR zvs_gvx.conf (5)\nof the configuration folder.\n"
            f".SH OPTIONS\n{entries_of(shown.sections['Options'])}{exit_codes(text)}"
            ".SH ENVIRONMENT\n.TP\n.B GVX_CONFIG_DIR\nThe configuration folder, /etc/gvx without it.\n"
            ".TP\n.B GVX_ROOT\nStands in front of the platform's own absolute paths; empty on a node of the platform.\n"
            ".SH FILES\n.TP\n.B /etc/gvx\nThe configuration.\n.TP\n.B /etc/default/gvxd\nThe environment of the service.\n")
    return page("gvxd", 8, version, "the video-surveillance access gateway", body, [("gvxctl", 1), ("zvs_gvx.conf", 5)])


def gvxctl_page(gvxctl, version):
    text = printed(gvxctl, "--help")
    shown = Help(text)
    commands = {command.split("\n")[0]: Help(command[command.index("\n"):])
                for command in re.split(r"^= ", printed(gvxctl, "completion", "help"), flags=re.M)[1:]}
    rows = [tuple(row) for command in commands.values() for row in command.sections.get("Options", [])]
    shared = {row for row in rows if rows.count(row) > len(commands) / 2}
    body = (f".SH SYNOPSIS\n.B {roff(shown.usage)}\n.SH DESCRIPTION\n{roff(shown.about)}\n"
            f".SH OPTIONS\n{entries_of(shown.sections['Options'])}"
            f".SH OPTIONS OF MOST COMMANDS\n{entries_of(sorted(shared - {tuple(shown.sections['Options'][0])}))}"
            ".SH COMMANDS\n")
    for path, command in commands.items():
        body += f".SS {roff(path)}\n{roff(command.about)}\n"
        for title, entries in command.sections.items():
            if title not in ("Exit codes", "Subcommands"):
                body += entries_of(row for row in entries if tuple(row) not in shared)
    return page("gvxctl", 1, version, "the platform's side of the gateway's links", body + exit_codes(text),
                [("gvxd", 8), ("zvs_gvx.conf", 5)])


def settings_page(gvxd, configuration, version):
    rows = {}
    for line in printed(gvxd, "--list-settings").splitlines():
        cells = [cell.strip().strip("`") for cell in line.split("|")[1:-1]]
        if len(cells) >= 6 and re.fullmatch(r"[A-Za-z_0-9]+", cells[1]) and cells[1] != "Key":
            rows[cells[1]] = cells
    body = (".SH DESCRIPTION\nAll settings of\n.BR gvxd (8).\nA semicolon begins a comment; a value that cannot be used is named "
            "in the log and its default holds.\n.B gvxd \\-\\-check\\-config\nnames all that is wrong.\n")
    comment, known = [], set()

    def add(key, text):
        nonlocal body
        values, default, edit, acts = rows[key][2:6]
        body += (f".TP\n.B {roff(key)}\n{roff(text)}\n.br\n"
                 + roff(f"Values: {values}. Default: {'empty' if default == '-' else default}. "
                        f"{'A change acts: ' + acts if acts != '-' else 'Nothing here reads it'}. Edited at run time: {'no' if edit == '-' else edit}.") + "\n")

    for line in pathlib.Path(configuration).read_text(encoding="utf-8").splitlines():
        if section := re.fullmatch(r"\[(.+)\]", line.strip()):
            body += f".SH SECTION {roff(section[1])}\n"
            comment = []
        elif line.startswith(";"):
            comment.append(line[1:].strip())
        elif match := re.match(r"([A-Za-z_0-9]+)=", line):
            key = match[1]
            if key not in rows:
                sys.exit(f"{configuration}: {key} is no row of the table of settings")
            add(key, " ".join(comment))
            known.add(key)
        elif not line.strip():
            comment = []
    body += ".SH SETTINGS OF OTHER FILES\nThey stand in the same folder.\n"
    for key in sorted(set(rows) - known):
        add(key, f"Section {rows[key][0]}.")
    return page("zvs_gvx.conf", 5, version, "settings of the access gateway", body, [("gvxd", 8), ("gvxctl", 1)])


def main():
    gvxd, gvxctl, configuration, folder = sys.argv[1:]
    version = printed(gvxd, "--version").split()[-1]
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    pages = {"gvxd.8": gvxd_page(gvxd, version), "gvxctl.1": gvxctl_page(gvxctl, version),
             "zvs_gvx.conf.5": settings_page(gvxd, configuration, version)}
    for name, text in pages.items():
        (folder / f"{name}.gz").write_bytes(gzip.compress(text.encode(), 9, mtime=0))
    (folder / "gvxctl").write_text(printed(gvxctl, "completion", "bash"), encoding="utf-8")


if __name__ == "__main__":
    main()
