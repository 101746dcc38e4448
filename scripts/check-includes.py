#!/usr/bin/env python3
"""Checks that a folder only includes from the folders that it may depend on, that platform headers
and conditionals stay in win32/ and posix/, and that headers begin with #pragma once."""

import pathlib
import re
import subprocess
import sys

# Folder: the folders of ours that it may include from, besides itself.
FOUNDATION = {"foundation"}
CONVERT = FOUNDATION | {"stages/convert"}
CHAIN = CONVERT | {"chain"}
OUTPUT = FOUNDATION | {"output"}
DRIVER = CHAIN | OUTPUT | {"chain/driver", "config"}
STAGES = CHAIN | {"stages", "config"}
MAY_INCLUDE = {
    "foundation": FOUNDATION,
    "stages/convert": CONVERT,
    "stages/resample": CHAIN | {"config", "stages/resample"},
    "config": FOUNDATION | {"config"},
    "output": OUTPUT,
    "chain": CHAIN,
    "chain/driver": DRIVER,
    "stages": STAGES,
    "kestrix": CHAIN | {"config", "kestrix"},
    "kestrix/dsphost": CHAIN | {"config", "kestrix/dsphost"},
    "host": DRIVER | STAGES | {"stages/resample", "kestrix", "kestrix/dsphost", "host"},
    # The program is a host: it plays through the module's record, and limits what it decodes to what
    # the converter takes.
    "player": {"player", "host", "config", "foundation", "output", "chain", "kestrix",
               "stages/convert"},
}
PLATFORM = {"win32", "posix", "directsound", "pulse"}
PLATFORM_HEADERS = re.compile(
    r"<(windows|mmsystem|process|dsound|objbase|dlfcn|unistd|pthread|poll|sched|termios|fcntl|pulse/"
    r"|sys/|linux/)")
CONDITIONAL = re.compile(r"#\s*(if|elif).*(_WIN32|__linux__|__unix__)")


def folder_of(path):
    parts = [part for part in pathlib.PurePosixPath(path).parts[:-1] if part not in PLATFORM]
    return "/".join(parts)


def main():
    listing = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.h", "*.cpp"],
        check=True, capture_output=True, text=True).stdout.split()
    faults = []
    for name in listing:
        if not pathlib.Path(name).exists():
            continue
        lines = pathlib.Path(name).read_text(encoding="utf-8").splitlines()
        own = folder_of(name)
        on_platform = bool(PLATFORM & set(pathlib.PurePosixPath(name).parts))
        tested = own.split("/")[0] in {"tests", "bench", "fuzz"}
        public_c = name == "host/OutModule.h"
        if name.endswith(".h") and not public_c and "#pragma once" not in lines[:3]:
            faults.append(f"{name}: no #pragma once")
        for number, line in enumerate(lines, 1):
            place = f"{name}:{number}"
            ours = re.match(r'#include "([^"]+)"', line)
            if ours and not tested:
                target = folder_of(ours.group(1))
                if target not in MAY_INCLUDE.get(own, set()) and target != own:
                    faults.append(f"{place}: {own} may not include {ours.group(1)}")
            if on_platform or tested:
                continue
            if PLATFORM_HEADERS.search(line) and line.startswith("#include"):
                faults.append(f"{place}: platform header outside win32/ and posix/")
            if CONDITIONAL.search(line):
                faults.append(f"{place}: platform conditional outside win32/ and posix/")
    print("\n".join(faults) or "includes: in order")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
