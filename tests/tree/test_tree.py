"""The rules that hold the source tree together. A rule yields its faults, one sentence each."""

import os
import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROTOCOL = "platform/PlatformProtocol.hpp"
VOCABULARY = ["handler/WebNotifierCommand.hpp", "handler/WebNotifierPublishCommand.hpp"]
RECORDS = ["model", "platform/records", "platform/session", PROTOCOL]

# A folder, or a file, and what may be included there: the longest that fits counts.
INCLUDES = {
    PROTOCOL: [],
    "platform/records": ["platform/records", PROTOCOL],
    "platform/api": ["platform/api", *RECORDS],
    "platform/session": ["platform/session", "platform/records", "model"],
    "platform/bundled": ["platform/bundled", "platform/api", *RECORDS],
    "model": ["model", "platform/records", "platform/api/Logger.hpp"],
    "publisher": ["publisher", "platform/records", "platform/api/Logger.hpp",
                  "platform/api/ResultCode.hpp"],
    "handler": ["handler", "publisher", "model", "platform/api", "platform/records", PROTOCOL],
    "app": ["app", "handler", "platform/api"],
    # Companions speak the messages; they are no part of the service, nor is it a part of them.
    "tools": ["tools", *RECORDS, *VOCABULARY],
    "tools/kaikla-devices": ["tools", "platform/api/Logger.hpp", "gateway/ApiText.hpp",
                             "gateway/MqttClient.hpp", "gateway/TopicText.hpp"],
    "gateway": ["gateway", "tools/client", "platform/api/Logger.hpp",
                "platform/api/DescriptorLimit.hpp", *RECORDS, *VOCABULARY],
    "bench": ["bench", PROTOCOL],
    "tests": ["tests", "app", "handler", "publisher", "platform/api", "tools", "gateway",
              *RECORDS],
    # The implementation that comes with the service is tested as such here, and only here.
    "tests/platform": ["tests", "platform", "model"],
}
FOLDERS = {folder.split("/")[0] for folder in INCLUDES}
MEASURED = ["app", "handler", "publisher", "model", "platform", "tools", "gateway", "examples"]
MOST_TESTS = 1 / 3
WORDS = r"TOD[O]|FIXM[E]"  # in pieces, so that this file holds none of them
NO_SOURCE = re.compile(r"\.(?!ci$)|build|dist$|node_modules$|__pycache__$")


def texts(root, *tops):
    """(name, text) of every file in these folders of the tree, by default in all."""
    for top in tops or [""]:
        for folder, folders, files in os.walk(root / top):
            folders[:] = sorted(name for name in folders if not NO_SOURCE.match(name))
            for path in (pathlib.Path(folder, file) for file in sorted(files) if file != ".git"):
                yield path.relative_to(root).as_posix(), path.read_text("utf-8", "replace")


def matches(text, pattern):
    for number, line in enumerate(text.splitlines(), 1):
        yield from ((number, match) for match in re.finditer(pattern, line))


def lies_in(name, folders):
    return [folder for folder in folders if name == folder or name.startswith(folder + "/")]


def includes(root):
    for name, text in texts(root, *FOLDERS):
        rule = max(lies_in(name, INCLUDES), key=len, default=None)
        if not name.endswith((".cpp", ".hpp", ".in")):
            continue
        if rule is None:
            yield f"{name}: its folder has no rule"
        for number, match in matches(text, r'^\s*#\s*include\s*([<"])([^>"]+)'):
            included = match[2]
            ours = "/" in included and included.split("/")[0] in FOLDERS
            if match[1] == '"' and not ours:
                yield f'{name}:{number}: "{included}" is not written from the top of the tree'
            elif ours and rule and not lies_in(included, INCLUDES[rule]):
                yield f"{name}:{number}: {rule} may not include {included}"


def endpoints(root):
    """Code has the ports from one header; documents and tests repeat them."""
    ports = re.findall(r'tcp://[^"]*:(\d+)', (root / PROTOCOL).read_text(encoding="utf-8"))
    for name, text in texts(root, *(FOLDERS - {"tests"}), "cmake"):
        if name != PROTOCOL and not name.endswith(".md"):
            for number, match in matches(text, rf"(?<!\d)({'|'.join(ports)})(?!\d)"):
                yield f"{name}:{number}: repeats {match[0]} of {PROTOCOL}"


def links(root):
    """Links of documents, and the names of files in them, lead somewhere."""
    for name, text in texts(root):
        for number, match in matches(text, r"\]\((?!\w+:)([^)#\s]*)#?([^)\s]*)\)"):
            target = (root / name).parent / match[1] if match[1] else root / name
            if name.endswith(".md") and not target.exists():
                yield f"{name}:{number}: {match[1]} is not there"
            elif name.endswith(".md") and match[2]:
                headings = re.findall(r"^#+ (.*)$", target.read_text("utf-8"), re.MULTILINE)
                places = [re.sub(r"[^\w\- ]", "", heading).lower() for heading in headings]
                if match[2].replace("-", " ") not in [place.replace("-", " ") for place in places]:
                    yield f"{name}:{number}: there is no {match[1]}#{match[2]}"
        for number, match in matches(text, rf"`((?:{'|'.join(FOLDERS)})/[\w./-]*)`"):
            if name.endswith(".md") and not list(root.glob(match[1].rstrip("/") + "*")):
                yield f"{name}:{number}: {match[1]} is not there"


def words(root):
    for name, text in texts(root):
        yield from (f"{name}:{number}: '{match[0]}'" for number, match in matches(text, WORDS))


@pytest.mark.parametrize("rule", [includes, endpoints, links, words])
def test_tree(rule):
    faults = list(rule(ROOT))
    assert not faults, "\n".join(faults)


def test_tests_are_a_third_of_the_code(record_property):
    def lines(*folders):
        return sum(text.count("\n") for name, text in texts(ROOT, *folders) if "/corpus/" not in name)

    share = lines("tests") / lines(*MEASURED)
    record_property("tests/, lines a line of the code", f"{share:.3f}")
    assert share <= MOST_TESTS


@pytest.mark.parametrize("rule, name, text", [
    (includes, "platform/records/A.hpp", '#include "platform/api/Logger.hpp"'),
    (includes, "handler/A.cpp", "#include <platform/bundled/RotatingFile.hpp>"),
    (includes, "handler/A.cpp", '#include "../platform/bundled/RotatingFile.hpp"'),
    (includes, "platform/extra/A.cpp", ""),
    (endpoints, "tools/demo/demo", "nc -z 127.0.0.1 5580"),
    (links, "docs/a.md", "[a](gone.md) [b](a.md) [c](../app/A.cpp)"),
    (links, "docs/a.md", "# The place\n[a](#the-place) [b](#another-place)"),
    (links, "docs/a.md", "`app/A` and `app/gone/`"),
    (words, "docs/a.md", "TO" + "DO: say it"),
])
def test_a_fault_is_found(rule, name, text, tmp_path):
    for file, content in [(PROTOCOL, '"tcp://*:5580"\n'), ("app/A.cpp", ""), (name, text + "\n")]:
        (tmp_path / file).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / file).write_text(content, encoding="utf-8")
    assert len(list(rule(tmp_path))) == 1
