"""The files of schemas/ and an existing validator on top of them."""

import copy
import json

import jsonschema

import protocol

DIALECT = jsonschema.Draft202012Validator
_PREFIX = "urn:kaikla:schema:"

STORE = {}
for _path in sorted((protocol.ROOT / "schemas").glob("*.schema.json")):
    _schema = json.loads(_path.read_text(encoding="utf-8"))
    assert _schema["$id"] == _PREFIX + _path.name.removesuffix(".schema.json"), _path
    STORE[_schema["$id"]] = _schema


def named(name):
    """The schema of one file."""
    return STORE[_PREFIX + name]


def branches(name):
    """{definition: schema} of the alternatives that make up one file."""
    definitions = named(name)["$defs"]
    names = [choice["$ref"].rpartition("/")[2] for choice in named(name)["oneOf"]]
    return {branch: definitions[branch] for branch in names}


# One for all: a resolver remembers what it has looked up.
_RESOLVER = jsonschema.RefResolver("", {}, store=STORE)


def _validator(schema):
    return DIALECT(schema, resolver=_RESOLVER)


def accepts(schema, message):
    return _validator(schema).is_valid(message)


def errors(schema, message):
    """What is wrong with the message, one text a fault."""
    faults = _validator(schema).iter_errors(message)
    return [f"{fault.json_path}: {fault.message[:300]}" for fault in faults]


def branch_of(name, message):
    """The one alternative of a file that the message fits."""
    fitting = [branch for branch, schema in branches(name).items() if accepts(schema, message)]
    if len(fitting) != 1:
        raise AssertionError(f"{name}: {fitting or errors(named(name), message)}: {message}")
    return fitting[0]


# Left out when they are empty; every other key of what the service writes is always there.
_LIST_KEYS = {"alarms", "eths", "ports", "remote", "sessions", "stream"}


def broken_copies(message):
    """Copies of a message that the service wrote, each with one fault: a key missing or added, a
    value of another type or beyond every width, an empty list. Yields (fault, copy)."""
    for path, value in _walk(message):
        place = ".".join(map(str, path)) or "the message"
        if isinstance(value, dict):
            yield f"{place} with a key too many", _replaced(message, path, {**value, "surplus": 1})
            for key in value.keys() - _LIST_KEYS:
                rest = {other: kept for other, kept in value.items() if other != key}
                yield f"{place} without {key}", _replaced(message, path, rest)
        elif isinstance(value, list):
            yield f"{place} empty", _replaced(message, path, [])
            yield f"{place} as an object", _replaced(message, path, {})
        else:
            yield f"{place} as a list", _replaced(message, path, [value])
            if isinstance(value, int) and not isinstance(value, bool):
                yield f"{place} too large", _replaced(message, path, 1 << 64)
                yield f"{place} too small", _replaced(message, path, -(1 << 63) - 1)


def _walk(value, path=()):
    yield path, value
    if isinstance(value, dict):
        children = value.items()
    else:
        children = enumerate(value) if isinstance(value, list) else ()
    for key, child in children:
        yield from _walk(child, (*path, key))


def _replaced(message, path, value):
    if not path:
        return value
    outcome = copy.deepcopy(message)
    holder = outcome
    for key in path[:-1]:
        holder = holder[key]
    holder[path[-1]] = value
    return outcome
