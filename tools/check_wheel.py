"""Checks that a wheel is fit to be given away: python tools/check_wheel.py WHEEL."""

import re
import sys
import zipfile
from pathlib import Path

LARGEST = 6 << 20  # bytes
NOTICES = ("LICENSE", "nanobind", "robin-map", "skfolio")


def problems(wheel: Path) -> list[str]:
    """What is wrong with a wheel; nothing when it is fit."""
    found = []
    if "manylinux" not in wheel.name:
        found.append("its name promises no system: auditwheel has not seen it")
    if wheel.stat().st_size > LARGEST:
        found.append(f"it has {wheel.stat().st_size:,} bytes; the most is {LARGEST:,}")
    with zipfile.ZipFile(wheel) as file:
        names = file.namelist()
        modules = [name for name in names if name.endswith(".so")]
        for name in modules:
            content = file.read(name)
            here = str(Path.cwd()).encode()
            if here in content or b"/site-packages/" in content:
                found.append(f"{name} tells of the machine that built it")
            if b".debug_info" in content or b".symtab" in content:
                found.append(f"{name} is not stripped")
    if sorted(Path(name).name.partition(".")[0] for name in modules) != ["_engine", "report"]:
        found.append(f"it holds the modules {modules}")
    licences = " ".join(name for name in names if "dist-info/licenses" in name)
    found += [f"the notice of {name} is missing" for name in NOTICES if name not in licences]
    strange = [n for n in names if not re.match(r"corvex/|corvex-[^/]+\.dist-info/", n)]
    if strange:
        found.append(f"it installs files outside its package: {strange[:3]}")
    return found


def main() -> int:
    """Check the wheels named, and tell."""
    failed = 0
    for wheel in map(Path, sys.argv[1:]):
        found = problems(wheel)
        print(f"{wheel}: {wheel.stat().st_size / 1e6:.2f} MB", "; ".join(found) or "fit", sep=", ")
        failed += bool(found)
    return min(failed, 1)


if __name__ == "__main__":
    sys.exit(main())
