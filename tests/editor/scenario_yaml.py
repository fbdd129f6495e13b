"""Scenario files read as planecheck reads them, for the schema tests.

planecheck resolves plain scalars by the YAML 1.2 core schema: only true/false are booleans, so
`yes`, `on` or `off` reach the converters as text. PyYAML follows YAML 1.1; the loader here takes
its booleans back to the 1.2 words. Nodes keep their lines, so a test can find the step at a line.
"""
import re

import yaml


class CoreSchemaLoader(yaml.SafeLoader):
    pass


CoreSchemaLoader.yaml_implicit_resolvers = {
    first: [(tag, regexp) for tag, regexp in resolvers if tag != "tag:yaml.org,2002:bool"]
    for first, resolvers in yaml.SafeLoader.yaml_implicit_resolvers.items()
}
CoreSchemaLoader.add_implicit_resolver(
    "tag:yaml.org,2002:bool", re.compile(r"^(?:true|True|TRUE|false|False|FALSE)$"), list("tTfF"))


def load(path):
    with open(path, encoding="utf-8") as f:
        return yaml.load(f, Loader=CoreSchemaLoader)


def step_lines(path):
    """The first and last line (1-based) of each step under steps:."""
    with open(path, encoding="utf-8") as f:
        root = yaml.compose(f, Loader=CoreSchemaLoader)
    for key, value in root.value:
        if key.value == "steps":
            # a step's node ends where the next one starts, so a step ends on the line before it
            firsts = [s.start_mark.line + 1 for s in value.value]
            lasts = [n - 1 for n in firsts[1:]] + [value.end_mark.line + 1]
            return list(zip(firsts, lasts))
    return []
