"""The files of schemas/, with a validator on top of them."""

import json

import jsonschema

import peers

DIALECT = jsonschema.Draft202012Validator
STORE = {
    schema["$id"]: schema
    for schema in (
        json.loads(path.read_text(encoding="utf-8"))
        for path in sorted((peers.ROOT / "schemas").glob("*.schema.json"))
    )
}

try:
    from referencing import Registry

    _REFERENCES = {"registry": Registry().with_contents(STORE.items())}
except ImportError:  # before version 4.18 of jsonschema
    _REFERENCES = {"resolver": jsonschema.RefResolver("", {}, store=STORE)}


def named(name):
    """The schema of one file: named("status-all")."""
    return STORE[f"urn:kaikla:schema:{name}"]


def branches(name):
    """{definition: schema} of the alternatives that make up one file."""
    definitions = named(name)["$defs"]
    names = [choice["$ref"].rpartition("/")[2] for choice in named(name)["oneOf"]]
    return {branch: definitions[branch] for branch in names}


def errors(schema, message):
    """What is wrong with the message, one text a fault."""
    faults = DIALECT(schema, **_REFERENCES).iter_errors(message)
    return [f"{fault.json_path}: {fault.message[:300]}" for fault in faults]


def check(name, message):
    """Returns the message, which must fit the schema."""
    assert not (faults := errors(named(name), message)), f"{name}: {faults}: {message}"
    return message


def branch_of(name, message):
    """The one alternative of a file that the message fits."""
    fitting = [branch for branch, schema in branches(name).items() if not errors(schema, message)]
    assert len(fitting) == 1, f"{name}: {fitting or errors(named(name), message)}: {message}"
    return fitting[0]
