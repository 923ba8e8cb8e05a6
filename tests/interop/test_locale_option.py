"""--locale on tables written by another program in many code pages, on a
Western locale: `codepage info` says whether the table reads right, which
the plain reading confirms; where it does not, the locale it names, and
`--locale auto`, read the names the writer wrote; and `codepage decode
--locale auto` decodes bytes as Python's own codec encodes them."""

import json
import os
import subprocess

import interop as I

tool, _ = I.environment()
folder = I.shared_data("codepage-tables")
manifest = json.loads(I.read(os.path.join(folder, "manifest.json")))
WESTERN = {"QUILLET_ACP": "1252", "QUILLET_OEMCP": "437", "QUILLET_LANGID": "9",
           "QUILLET_COUNTRYID": "1"}


def names(path, *options):
    dump = I.run(tool, "dbf", "dump", path, "--format", "jsonl", *options, env=WESTERN)
    if dump.returncode != 0:
        raise RuntimeError("dbf dump %s: %s" % (path, dump.stderr.strip()))
    return [json.loads(line)["NAME"] for line in dump.stdout.splitlines() if line], dump.stderr


def decoded(code_page, data):
    result = subprocess.run([tool, "codepage", "decode", str(code_page), "--locale", "auto"],
                            input=data, capture_output=True, env=dict(os.environ, **WESTERN))
    return result.stdout.decode("utf-8"), result.returncode


c = I.Checker()
c.check(manifest, "the manifest lists no tables")
for entry in manifest:
    table, written = entry["table"], entry["names"]
    path = os.path.join(folder, table)
    try:
        info = json.loads(I.output(tool, "codepage", "info", path, "--json", env=WESTERN))
        plain, _ = names(path)
        c.check(info["reads_right"] == (plain == written),
                "%s: codepage info says reads_right %s, but it reads %r (written %r)"
                % (table, info["reads_right"], plain, written))
        auto, note = names(path, "--locale", "auto")
        c.check(auto == written, "%s with --locale auto: %r, written %r" % (table, auto, written))
        c.check(("--locale auto" in note) == (plain != written),
                "%s: --locale auto said %r" % (table, note))
        if not info["reads_right"]:
            fixed, _ = names(path, *info["locale_fix"].split())
            c.check(fixed == written, "%s with %s: %r" % (table, info["locale_fix"], fixed))
        data = "\n".join(written).encode(entry["python_encoding"]) + b"\n"
        text, rc = decoded(entry["code_page"], data)
        c.check(rc == 0 and text.splitlines() == written,
                "%s: codepage decode %s --locale auto gives %r" % (table, entry["code_page"], text))
    except RuntimeError as error:
        c.check(False, "%s: %s" % (table, error))

c.finish("%d tables checked" % len(manifest))
