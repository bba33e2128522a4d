"""The rules that hold the source tree together: who may include whom, where endpoints stand, and
that the documents' links lead somewhere."""

import re
from pathlib import Path

PROTOCOL = "platform/PlatformProtocol.hpp"
VOCABULARY = ["handler/WebNotifierCommand.hpp", "handler/WebNotifierPublishCommand.hpp"]

# A folder and what its files may include: whole folders, or single headers. A file is held to the
# longest folder that fits; what fits none has no rule yet and is refused.
ALLOWED = {
    "platform": [],
    "platform/records": ["platform/records", PROTOCOL],
    "platform/api": ["platform/api", "platform/records", "platform/session", "model", PROTOCOL],
    "platform/sockets": ["platform/sockets"],
    "platform/session": ["platform/session", "platform/records", "model"],
    "platform/bundled": ["platform/bundled", "platform/api", "platform/records",
                         "platform/session", "platform/sockets", "model", PROTOCOL],
    "model": ["model", "platform/records", "platform/api/Logger.hpp"],
    "publisher": ["publisher", "platform/records", "platform/api/Logger.hpp",
                  "platform/api/ResultCode.hpp"],
    "handler": ["handler", "publisher", "model", "platform/api", "platform/records", PROTOCOL],
    "app": ["app", "handler", "platform/api"],
    # Companions speak the messages; they are no part of the service, nor is it a part of them.
    "tools": ["tools", "model", "platform/records", "platform/session", PROTOCOL, *VOCABULARY],
    "bench": ["bench", "model", "platform/records", "platform/session", PROTOCOL, *VOCABULARY],
    # Takes the time of the service's own steps.
    "bench/micro.cpp": ["model", "publisher", "platform/records", "platform/api/Logger.hpp"],
    "tests": ["app", "handler", "publisher", "model", "platform/api", "platform/records",
              "platform/session", "tests", "tools", PROTOCOL],
    # The implementation that comes with the service is tested as such here, and only here.
    "tests/platform": ["platform", "model", "tests"],
}
TOP_FOLDERS = sorted({folder.split("/")[0] for folder in ALLOWED})

SOURCES = {".cpp", ".hpp", ".cc", ".h", ".c"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
# Documents, tests and what describes the service to people repeat endpoints; code does not.
CODE_FOLDERS = ["app", "bench", "cmake", "handler", "model", "platform", "publisher", "tools"]
DOCUMENTS = ["README.md", "CONTRIBUTING.md", "docs/*.md"]
# The file that a link names. One to a place in the same document, or with a scheme, names none.
LINK = re.compile(r"\]\((?!\w+:)([^)#\s]+)")
PORT = re.compile(r'tcp://[^"]*:(\d+)')


def _files(root, folders, suffixes=None):
    for folder in folders:
        for path in sorted((root / folder).rglob("*")):
            if path.is_file() and (suffixes is None or path.suffix in suffixes):
                yield path.relative_to(root).as_posix(), path


def _lies_in(name, folder):
    return name == folder or name.startswith(folder + "/")


def _is_allowed(included, allowed):
    return any(_lies_in(included, entry) for entry in allowed)


def layering_faults(root):
    """Every #include that goes against ALLOWED, one sentence each."""
    root = Path(root)
    for name, path in _files(root, TOP_FOLDERS, SOURCES):
        folder = max((rule for rule in ALLOWED if _lies_in(name, rule)), key=len)
        if folder == "platform" and name != PROTOCOL:
            yield f"{name}: its folder has no rule"
            continue
        for number, line in enumerate(path.read_text("utf-8", "replace").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            quoted, included = match[1] == '"', match[2]
            ours = included.split("/")[0] in TOP_FOLDERS and "/" in included
            if quoted and not ours:
                yield f'{name}:{number}: "{included}" is not written from the top of the tree'
            elif ours and not _is_allowed(included, ALLOWED[folder]):
                yield f"{name}:{number}: {folder} may not include {included}"


def endpoint_faults(root):
    """Every place in the code, other than the one header, that holds a port of an endpoint."""
    root = Path(root)
    ports = sorted(set(PORT.findall((root / PROTOCOL).read_text(encoding="utf-8"))))
    if not ports:
        yield f"{PROTOCOL}: holds no endpoint"
        return
    repeated = re.compile(r"(?<!\d)(" + "|".join(ports) + r")(?!\d)")
    for name, path in _files(root, CODE_FOLDERS):
        if name == PROTOCOL or path.suffix == ".md":
            continue
        for number, line in enumerate(path.read_text("utf-8", "replace").splitlines(), 1):
            for port in repeated.findall(line):
                yield f"{name}:{number}: repeats {port} of {PROTOCOL}"


def link_faults(root):
    """Every relative link of a document to a file that is not there."""
    for path in (path for pattern in DOCUMENTS for path in sorted(Path(root).glob(pattern))):
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            for target in LINK.findall(line):
                if not (path.parent / target).exists():
                    yield f"{path.relative_to(root).as_posix()}:{number}: {target} is not there"
