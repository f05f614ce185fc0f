"""Validates the contract against the published meta-schema of AsyncAPI 3."""

import json
import sys

import jsonschema

import contract

META = contract.HERE / "node_modules/@asyncapi/specs/schemas/3.0.0-without-$id.json"


class Resolver(jsonschema.RefResolver):
    """All references of the meta-schema lead into itself.

    Debian's jsonschema stumbles over its members that are called "$id" otherwise.
    """

    def resolve(self, ref):
        return ref, self.resolve_fragment(self.referrer, ref.removeprefix("#"))


def errors_in(document):
    meta = json.loads(META.read_text(encoding="utf-8"))
    validator = jsonschema.Draft7Validator(meta, resolver=Resolver("", meta))
    for error in validator.iter_errors(document):
        best = jsonschema.exceptions.best_match([error])
        yield f"contract/asyncapi.json: {best.json_path}: {best.message[:500]}"


def main():
    errors = list(errors_in(contract.load()))
    for error in errors:
        print(error, file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
