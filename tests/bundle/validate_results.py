#!/usr/bin/env python3
"""Validates the results document against docs/results.schema.json: the file
--json wrote and the copy a bundle embeds, which must also be the same bytes
once its two script escapes are undone.

usage: validate_results.py SCHEMA RESULTS_JSON BUNDLE_HTML"""
import html.parser
import json
import sys

import jsonschema


class ScriptText(html.parser.HTMLParser):
    """The text of <script id="rig-results">, as a browser's textContent."""

    def __init__(self):
        super().__init__(convert_charrefs=False)
        self.inside = False
        self.text = None

    def handle_starttag(self, tag, attrs):
        if tag == "script" and dict(attrs).get("id") == "rig-results":
            self.inside = True
            self.text = ""

    def handle_endtag(self, tag):
        if tag == "script":
            self.inside = False

    def handle_data(self, data):
        if self.inside:
            self.text += data


def main():
    schema_path, json_path, bundle_path = sys.argv[1:4]
    with open(schema_path, encoding="utf-8") as f:
        schema = json.load(f)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)

    with open(json_path, "rb") as f:
        written = f.read()
    with open(bundle_path, encoding="utf-8") as f:
        parser = ScriptText()
        parser.feed(f.read())
    if parser.text is None:
        sys.exit("no <script id=rig-results> in the bundle")

    failures = 0
    for name, text in (("--json", written.decode("utf-8")), ("embedded", parser.text)):
        for error in validator.iter_errors(json.loads(text)):
            print(f"{name}: {'/'.join(map(str, error.absolute_path))}: {error.message}")
            failures += 1
    if json.loads(parser.text) != json.loads(written):
        print("the embedded document parses to other values than --json's")
        failures += 1
    exact = parser.text.replace("<\\/", "</").replace("<\\u0021", "<!")
    if exact.encode("utf-8") != written:
        print("the embedded document is not --json's bytes once unescaped")
        failures += 1
    if failures:
        sys.exit(1)
    print("schema: --json and the embedded copy are valid and identical")


if __name__ == "__main__":
    main()
