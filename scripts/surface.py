#!/usr/bin/python3
"""The public surface of the project, described in text files checked in
under docs/surface/, and the checks that hold it (docs/COMPATIBILITY.md).

    /usr/bin/python3 scripts/surface.py check  BUILD_DIR [PART...]
    /usr/bin/python3 scripts/surface.py update BUILD_DIR [PART...] [--accept-abi-break]
    /usr/bin/python3 scripts/surface.py version BUILD_DIR

(scripts/surface.sh --update BUILD_DIR runs update for every part.)

The parts:
  python   the public names of kpz, kpz.remote and kpz.distributed (no
           leading underscore, in __all__ where a module has one), with
           signatures, classes' public methods, properties and fields
  java     the public classes and members of kpzinterface.jar (javap -public)
  cli      the commands and options of `kpz` and `python3 -m kpz.distributed`
  symbols  the dynamic symbols libKpzInterface.so exports (its ABI)

Each description starts with a header: the version it describes, and the
names whose description changed in that version. `update` writes the
description and adds the names it changed to that list; `check` fails when
the description is not what the build gives, when its version is not the
file VERSION, or when a name listed as changed in this version is not
mentioned in CHANGELOG.md's top section (so a change of the surface cannot
be checked in without a changelog entry). A symbol that disappears from the
library is an ABI break: `update` refuses it unless the SONAME (the
version's first number) changed or --accept-abi-break is given.

`version` checks that the library (its file name and SONAME), `kpz
--version`, kpz.__version__, the jar's manifest, the Debian packages
(CPack) and setup.py all say the version of the file VERSION.
"""

import argparse
import enum
import importlib
import inspect
import os
import re
import subprocess
import sys
import zipfile
from pathlib import Path
from typing import Dict, List, Optional, Sequence, Tuple

# KPZ_SURFACE_ROOT: another tree's VERSION, CHANGELOG.md and docs/surface/
# (the checks' own test runs them on a copy).
ROOT = Path(os.environ.get("KPZ_SURFACE_ROOT") or Path(__file__).resolve().parent.parent)
SURFACE_DIR = ROOT / "docs" / "surface"
CHANGELOG = ROOT / "CHANGELOG.md"
PARTS = ("python", "java", "cli", "symbols")
PY_MODULES = ("kpz", "kpz.remote", "kpz.distributed")
UPDATE_HINT = "/usr/bin/python3 scripts/surface.py update {build}   (or scripts/surface.sh --update {build})"


def project_version() -> str:
    return (ROOT / "VERSION").read_text(encoding="utf-8").strip()


# -- the descriptions ---------------------------------------------------------
#
# A description is a list of (key, line): key is the dotted name the line is
# about (what the changelog must mention when the line changes), line is the
# text written. Lines are sorted by key and text.

def _clean(text: str) -> str:
    """A description's words without what changes from run to run."""
    return re.sub(r" at 0x[0-9a-fA-F]+", "", text)


def _signature(obj) -> str:
    try:
        return _clean(str(inspect.signature(obj)))
    except (TypeError, ValueError):
        doc = (getattr(obj, "__doc__", None) or "").strip().splitlines()
        return "(...)  # " + _clean(doc[0]) if doc else "(...)"


def _public_names(module) -> List[str]:
    names = getattr(module, "__all__", None)
    if names is None:
        names = [n for n in vars(module) if not n.startswith("_")
                 and not inspect.ismodule(getattr(module, n))]
    return sorted(n for n in names if n != "__version__")


def _owned(cls) -> List[type]:
    """The classes of cls's MRO that are the package's own (what Python or a
    library gives every subclass is theirs, not ours)."""
    return [c for c in cls.__mro__ if (getattr(c, "__module__", "") or "").split(".")[0] == "kpz"]


def _class_lines(qual: str, cls) -> List[Tuple[str, str]]:
    bases = ", ".join(b.__module__ + "." + b.__qualname__ if b.__module__ != "builtins"
                      else b.__qualname__ for b in cls.__bases__)
    out = [(qual, "class %s(%s)" % (qual, bases))]
    if issubclass(cls, enum.Enum):
        for member in cls:
            out.append((qual + "." + member.name, "  %s.%s = %r" % (qual, member.name, member.value)))
        return out
    if "__init__" in vars(cls) or "__dataclass_fields__" in vars(cls):
        out.append((qual, "  %s%s" % (qual, _signature(cls))))
    seen = set()
    for owner in _owned(cls):
        for name, value in vars(owner).items():
            if name.startswith("_") or name in seen:
                continue
            seen.add(name)
            key = qual + "." + name
            if isinstance(value, property):
                out.append((key, "  property %s" % key))
            elif inspect.ismemberdescriptor(value) or inspect.isgetsetdescriptor(value):
                out.append((key, "  field %s" % key))  # __slots__
            elif isinstance(value, (classmethod, staticmethod)):
                kind = "classmethod" if isinstance(value, classmethod) else "staticmethod"
                out.append((key, "  %s %s%s" % (kind, key, _signature(getattr(cls, name)))))
            elif callable(value):
                # An alias (screennail = preview) shows as the name it is.
                same = getattr(value, "__name__", name)
                alias = "" if same == name else "  # = %s" % same
                out.append((key, "  def %s%s%s" % (key, _signature(value), alias)))
            else:
                out.append((key, "  %s = %s" % (key, _clean(repr(value)))))
    return out


def describe_python(build: Path) -> List[Tuple[str, str]]:
    sys.path.insert(0, str(build / "python"))
    out: List[Tuple[str, str]] = []
    for modname in PY_MODULES:
        module = importlib.import_module(modname)
        for name in _public_names(module):
            qual = modname + "." + name
            value = getattr(module, name)
            if inspect.isclass(value):
                out.extend(_class_lines(qual, value))
            elif inspect.isroutine(value):
                same = getattr(value, "__name__", name)
                alias = "" if same == name else "  # = %s" % same
                out.append((qual, "def %s%s%s" % (qual, _signature(value), alias)))
            elif inspect.ismodule(value):
                out.append((qual, "module %s" % qual))
            else:
                out.append((qual, "%s = %s" % (qual, _clean(repr(value)))))
    return out


def describe_java(build: Path) -> List[Tuple[str, str]]:
    jar = build / "lib" / "kpzinterface.jar"
    if not jar.exists():
        raise SystemExit("surface: %s is not built (cmake --build BUILD --target kpzinterface_jar)" % jar)
    with zipfile.ZipFile(jar) as z:
        classes = sorted(n[:-len(".class")].replace("/", ".") for n in z.namelist()
                         if n.endswith(".class"))
    javap = os.path.join(os.environ["JAVA_HOME"], "bin", "javap") if os.environ.get("JAVA_HOME") \
        else "javap"
    text = subprocess.run([javap, "-public", "-classpath", str(jar), *classes], check=True,
                          capture_output=True, text=True).stdout
    lines = []
    for line in text.splitlines():
        if line.startswith("Compiled from") or line.strip() in ("", "}"):
            continue
        lines.append(line.rstrip(" {") if not line.startswith(" ") else "  " + line.strip())
    # javap keeps the source's order within a class; the classes sorted.
    return list(zip(_java_keys(lines), lines))


def _java_keys(lines: Sequence[str]) -> List[str]:
    """The key of each line of a Java description: the class for its
    heading, class.member for a member."""
    keys, current = [], ""
    for line in lines:
        header = re.match(r"public .*?(?:class|interface|enum) ([\w.$]+)", line)
        if header and not line.startswith(" "):
            current = header.group(1)
            keys.append(current)
            continue
        member = re.search(r"([\w$]+)\(", line) or re.search(r"([\w$]+);$", line)
        keys.append(current + "." + member.group(1) if member else current)
    return keys


def _parse_help(text: str) -> Tuple[List[str], List[str]]:
    """The options (-x, --name) and the subcommands a --help text lists, read
    from its sections as CLI11 and argparse lay them out: an entry is an
    indented line whose first column (up to two spaces) names it."""
    options, commands = set(), []
    section = ""
    for line in text.splitlines():
        if not line.startswith(" "):
            # A heading ("Options:", an argparse group's title) opens a
            # section; a blank line or prose closes it.
            section = line.strip().rstrip(":").lower() if line.rstrip().endswith(":") else ""
            continue
        first = re.split(r"\s{2,}", line.strip())[0]
        if section and first.startswith("-"):
            options.update(re.findall(r"(?<![\w-])(--?[A-Za-z0-9][\w-]*)", first))
        elif section in ("subcommands", "commands") and re.fullmatch(r"[a-z][\w-]*", first):
            commands.append(first)
        elif section.startswith("positional") and re.fullmatch(r"\{[\w,-]+\}", first):
            commands.extend(first.strip("{}").split(","))
    return sorted(options), commands


def describe_cli(build: Path) -> List[Tuple[str, str]]:
    tool = build / "bin" / "kpz"
    if not tool.exists():
        raise SystemExit("surface: %s is not built (cmake --build BUILD --target kpz)" % tool)
    env = dict(os.environ, PYTHONPATH=str(build / "python"), COLUMNS="200", LC_ALL="C.UTF-8")
    out: List[Tuple[str, str]] = []

    def describe(argv: List[str], name: str, parent_help: str = "") -> None:
        done = subprocess.run(argv + ["--help"], capture_output=True, text=True, env=env, timeout=120)
        text = done.stdout + done.stderr
        if text == parent_help:
            return  # an argument, not a command of its own (argparse choices)
        options, commands = _parse_help(text)
        out.append((name, name))
        out.extend((name + " " + o, name + " " + o) for o in options)
        for command in commands:
            describe(argv + [command], name + " " + command, text)

    describe([str(tool)], "kpz")
    py = sys.executable
    for module in ("kpz", "kpz.distributed"):
        if (build / "python" / Path(*module.split(".")) / "__main__.py").exists():
            describe([py, "-m", module], "python3 -m " + module)
    return out


_NOT_OURS = re.compile(r"^(_ZN?K?St|_ZSt|_ZT[ISV]N?St|_ZN9__gnu_cxx|_ZGVZN?St|__cxa|__gxx|_init$|_fini$|"
                       r"__bss_start$|_edata$|_end$)")


def describe_symbols(build: Path) -> List[Tuple[str, str]]:
    lib = build / "lib" / "libKpzInterface.so"
    if not lib.exists():
        raise SystemExit("surface: %s is not built (cmake --build BUILD --target KpzInterface)" % lib)
    text = subprocess.run(["nm", "-D", "--defined-only", str(lib)], check=True, capture_output=True,
                          text=True).stdout
    names = []
    for line in text.splitlines():
        parts = line.split()
        if len(parts) != 3:
            continue
        kind, name = parts[1], parts[2]
        # W: inline functions from headers, emitted where the compiler chose not
        # to inline (it varies with the optimisation level); not our ABI.
        if kind in ("W", "w", "U") or _NOT_OURS.match(name):
            continue
        names.append(name)
    names.sort()
    demangled = subprocess.run(["c++filt"], input="\n".join(names), check=True, capture_output=True,
                               text=True).stdout.splitlines()
    return [(d, "%s  # %s" % (n, d) if d != n else n) for n, d in zip(names, demangled)]


def soname(build: Path) -> str:
    text = subprocess.run(["readelf", "-d", str(build / "lib" / "libKpzInterface.so")], check=True,
                          capture_output=True, text=True).stdout
    m = re.search(r"\(SONAME\)\s+Library soname: \[([^\]]+)\]", text)
    return m.group(1) if m else ""


DESCRIBE = {"python": describe_python, "java": describe_java, "cli": describe_cli,
            "symbols": describe_symbols}
TITLES = {"python": "public Python names of kpz, kpz.remote and kpz.distributed",
          "java": "public Java classes and members of kpzinterface.jar",
          "cli": "commands and options of kpz and python3 -m kpz.distributed",
          "symbols": "dynamic symbols exported by libKpzInterface.so (mangled  # demangled)"}


# -- the files ----------------------------------------------------------------

class Description:
    def __init__(self, version: str = "", changed: Sequence[str] = (), lines: Sequence[str] = (),
                 keys: Optional[Dict[str, List[str]]] = None, extra: Optional[Dict[str, str]] = None):
        self.version = version
        self.changed = sorted(set(changed))
        self.lines = list(lines)
        self.keys = keys or {}
        self.extra = extra or {}

    @staticmethod
    def read(path: Path) -> "Description":
        d = Description()
        if not path.exists():
            return d
        for line in path.read_text(encoding="utf-8").splitlines():
            m = re.match(r"^# (version|changed in [\d.]+|soname):? ?(.*)$", line)
            if m:
                if m.group(1) == "version":
                    d.version = m.group(2).strip()
                elif m.group(1) == "soname":
                    d.extra["soname"] = m.group(2).strip()
                else:
                    d.changed = [n for n in m.group(2).split("  ") if n]
            elif not line.startswith("#"):
                d.lines.append(line)
        return d

    def write(self, path: Path, part: str) -> None:
        head = ["# The %s." % TITLES[part],
                "# Generated: scripts/surface.sh --update BUILD_DIR; checked by CTest surface/%s." % part,
                "# version: %s" % self.version]
        if "soname" in self.extra:
            head.append("# soname: %s" % self.extra["soname"])
        head.append(("# changed in %s: %s" % (self.version, "  ".join(self.changed))).rstrip())
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("\n".join(head + self.lines) + "\n", encoding="utf-8")


def _by_key(pairs: Sequence[Tuple[str, str]]) -> Tuple[List[str], Dict[str, List[str]]]:
    keys: Dict[str, List[str]] = {}
    order: List[str] = []
    for key, line in pairs:
        if key not in keys:
            keys[key] = []
            order.append(key)
        keys[key].append(line)
    return [line for key in order for line in keys[key]], keys


def _keys_of(part: str, lines: Sequence[str]) -> Dict[str, List[str]]:
    """The lines of a description by key, read back from their text as the
    describe_* functions made them."""
    if part == "java":
        keys = _java_keys(lines)
    elif part == "python":
        keys = []
        for line in lines:
            text = re.sub(r"^(def|class|property|field|classmethod|staticmethod|module) ", "", line.strip())
            m = re.match(r"[\w.]+", text)
            keys.append(m.group(0) if m else text)
    elif part == "symbols":
        keys = [line.split("  # ", 1)[-1] for line in lines]
    else:
        keys = list(lines)
    out: Dict[str, List[str]] = {}
    for key, line in zip(keys, lines):
        out.setdefault(key, []).append(line)
    return out


def changelog_top() -> Tuple[str, str]:
    """The version of CHANGELOG.md's first release section, and the text of
    that section with an [Unreleased] section above it, if any."""
    text = CHANGELOG.read_text(encoding="utf-8") if CHANGELOG.exists() else ""
    sections = re.split(r"(?m)^## ", text)
    above = ""
    for section in sections[1:]:
        m = re.match(r"\[([^\]]+)\]", section)
        if m and m.group(1).lower() == "unreleased":
            above += section
        elif m:
            return m.group(1), above + section
    return "", above


def mentioned(key: str, text: str) -> bool:
    """A changed name counts as mentioned when its last part (the name a
    reader looks for: `extract`, `Settings`, `--tries`, `getInfo`) stands in
    the changelog's section as a word."""
    if key.startswith(("kpz ", "python3 ")):
        last = key.split()[-1]                               # a command or an option
    else:
        last = re.split(r"[.:$]+", key.split("(")[0])[-1]  # a name's last part
    if not last:
        return True
    return re.search(r"(?<![\w-])%s(?![\w])" % re.escape(last), text) is not None


# -- the commands ---------------------------------------------------------------

def check(build: Path, parts: Sequence[str]) -> int:
    version = project_version()
    top_version, top_text = changelog_top()
    failures: List[str] = []
    for part in parts:
        path = SURFACE_DIR / (part + ".txt")
        rel = path.relative_to(ROOT)
        have = Description.read(path)
        lines, keys = _by_key(DESCRIBE[part](build))
        if not path.exists():
            failures.append("%s: missing; write it with %s" % (rel, UPDATE_HINT.format(build=build)))
            continue
        if lines != have.lines:
            old = _keys_of(part, have.lines)
            gone = sorted(k for k in old if old[k] != keys.get(k))
            new = sorted(k for k in keys if keys[k] != old.get(k))
            if part == "symbols":
                removed = sorted(set(have.lines) - set(lines))
                added = sorted(set(lines) - set(have.lines))
                if removed:
                    failures.append("%s: %d symbol(s) the library exported are gone: an ABI break "
                                    "(programs built against %s would fail to load):\n    %s\n  "
                                    "Restore them, or make the break a decision: raise VERSION's first "
                                    "number (the SONAME), say so in CHANGELOG.md, and run %s"
                                    % (rel, len(removed), have.extra.get("soname", "this SONAME"),
                                       "\n    ".join(removed), UPDATE_HINT.format(build=build)))
                if added:
                    failures.append("%s: %d new symbol(s) (compatible additions; record them):\n    "
                                    "%s\n  Run %s" % (rel, len(added), "\n    ".join(added),
                                                      UPDATE_HINT.format(build=build)))
            else:
                failures.append("%s: the build's %s differs from the description for: %s\n  If the "
                                "change is meant, run %s, mention the names in CHANGELOG.md's top "
                                "section and commit both."
                                % (rel, part, ", ".join(sorted(set(gone) | set(new))),
                                   UPDATE_HINT.format(build=build)))
        if have.version != version:
            failures.append("%s: describes version %s, but VERSION says %s; run %s"
                            % (rel, have.version or "(none)", version, UPDATE_HINT.format(build=build)))
        if part == "symbols" and have.extra.get("soname") != soname(build):
            failures.append("%s: recorded for %s, but the library's SONAME is %s; run %s"
                            % (rel, have.extra.get("soname"), soname(build),
                               UPDATE_HINT.format(build=build)))
        if top_version != version:
            failures.append("CHANGELOG.md: its top release section is [%s], but VERSION says %s: "
                            "add a section ## [%s] for this version's changes"
                            % (top_version, version, version))
        elif part != "symbols":  # the library's symbols: removals are guarded by the SONAME
            missing = [k for k in have.changed if not mentioned(k, top_text)]
            if missing:
                failures.append("%s: changed in %s, but not mentioned in CHANGELOG.md's section "
                                "[%s]: %s" % (rel, version, version, ", ".join(missing)))
    for f in dict.fromkeys(failures):
        print("surface: " + f, file=sys.stderr)
    if not failures:
        print("surface: %s: as described in docs/surface/ (version %s)" % (", ".join(parts), version))
    return 1 if failures else 0


def update(build: Path, parts: Sequence[str], accept_abi_break: bool) -> int:
    version = project_version()
    _, top_text = changelog_top()
    status = 0
    for part in parts:
        path = SURFACE_DIR / (part + ".txt")
        have = Description.read(path)
        lines, keys = _by_key(DESCRIBE[part](build))
        old = _keys_of(part, have.lines)
        changed = sorted(k for k in set(old) | set(keys) if old.get(k) != keys.get(k)) \
            if path.exists() else []
        extra = {}
        if part == "symbols":
            extra["soname"] = soname(build)
            removed = sorted(set(have.lines) - set(lines)) if path.exists() else []
            if removed and extra["soname"] == have.extra.get("soname") and not accept_abi_break:
                print("surface: %s: refused: %d symbol(s) would be removed under the same SONAME "
                      "%s (an ABI break):\n    %s\n  Raise VERSION's first number, or pass "
                      "--accept-abi-break if they were never usable by a program."
                      % (path.relative_to(ROOT), len(removed), extra["soname"], "\n    ".join(removed)),
                      file=sys.stderr)
                status = 1
                continue
        kept = have.changed if have.version == version else []
        d = Description(version, list(kept) + changed, lines, extra=extra)
        if lines == have.lines and have.version == version and have.extra == extra and path.exists():
            print("surface: %s: unchanged" % path.relative_to(ROOT))
            continue
        d.write(path, part)
        print("surface: %s: written (version %s)" % (path.relative_to(ROOT), version))
        unmentioned = [k for k in d.changed if not mentioned(k, top_text)] if part != "symbols" else []
        if unmentioned:
            print("surface:   mention in CHANGELOG.md's section [%s]: %s"
                  % (version, ", ".join(unmentioned)))
    return status


def check_version(build: Path) -> int:
    version = project_version()
    major = version.split(".")[0]
    said: Dict[str, str] = {}
    lib = build / "lib" / "libKpzInterface.so"
    said["libKpzInterface.so file name"] = os.path.basename(os.path.realpath(lib)).replace(
        "libKpzInterface.so.", "")
    said["libKpzInterface.so SONAME major"] = soname(build).replace("libKpzInterface.so.", "") \
        + " (of %s)" % version
    want_soname = major + " (of %s)" % version
    tool = build / "bin" / "kpz"
    said["kpz --version"] = subprocess.run([str(tool), "--version"], capture_output=True, text=True,
                                           timeout=60).stdout.strip().replace("kpz ", "", 1)
    env = dict(os.environ, PYTHONPATH=str(build / "python"))
    said["kpz.__version__"] = subprocess.run([sys.executable, "-c", "import kpz; print(kpz.__version__)"],
                                             capture_output=True, text=True, env=env,
                                             timeout=60).stdout.strip()
    with zipfile.ZipFile(build / "lib" / "kpzinterface.jar") as z:
        manifest = z.read("META-INF/MANIFEST.MF").decode("utf-8")
    m = re.search(r"^Implementation-Version: (\S+)", manifest, re.MULTILINE)
    said["kpzinterface.jar Implementation-Version"] = m.group(1) if m else "(none)"
    cpack = (build / "CPackConfig.cmake").read_text(encoding="utf-8")
    m = re.search(r'set\(CPACK_PACKAGE_VERSION "([^"]*)"\)', cpack)
    said["Debian packages (CPACK_PACKAGE_VERSION)"] = m.group(1) if m else "(none)"
    m = re.search(r'set\(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "([^"]*)"\)', cpack)
    said["Debian runtime package name"] = (m.group(1) if m else "(none)").replace("libkpzinterface", "") \
        + " (of %s)" % version
    # setup.py's own reading of VERSION (what the wheel's metadata gets),
    # without running setup().
    setup_py = Path(__file__).resolve().parent.parent / "setup.py"
    setup_text = setup_py.read_text(encoding="utf-8")
    scope: Dict[str, object] = {"__file__": str(setup_py)}
    exec(compile(setup_text.split("\nclass CMakeExtension")[0], "setup.py", "exec"), scope)
    said["setup.py (the wheel's metadata)"] = scope["project_version"]()  # type: ignore[operator]
    bad = []
    for what, value in said.items():
        want = want_soname if value.endswith(" (of %s)" % version) else version
        ok = value == want
        print("%-45s %s%s" % (what, value, "" if ok else "   <- not %s" % want))
        if not ok:
            bad.append(what)
    if bad:
        print("surface: not the version of the file VERSION (%s): %s" % (version, ", ".join(bad)),
              file=sys.stderr)
        return 1
    return 0


def main(argv: Optional[Sequence[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="surface.py", description=__doc__.split("\n\n")[0])
    parser.add_argument("command", choices=("check", "update", "version"))
    parser.add_argument("build", type=Path, help="the build directory (build/default)")
    parser.add_argument("parts", nargs="*", metavar="PART",
                        help="python, java, cli, symbols (default: all)")
    parser.add_argument("--accept-abi-break", action="store_true",
                        help="update: remove symbols even under the same SONAME")
    args = parser.parse_args(argv)
    build = args.build.resolve()
    parts = args.parts or list(PARTS)
    unknown = [p for p in parts if p not in PARTS]
    if unknown:
        parser.error("not a part: %s (the parts: %s)" % (", ".join(unknown), ", ".join(PARTS)))
    if args.command == "check":
        return check(build, parts)
    if args.command == "update":
        return update(build, parts, args.accept_abi_break)
    return check_version(build)


if __name__ == "__main__":
    sys.exit(main())
