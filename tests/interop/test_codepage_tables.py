"""Tables written by another program in many code pages, named by their .cpg
text or by their language driver byte, read as their writer wrote them.

Each table is read under a locale in which the identification rules pick the
writer's code page: a Western locale for single-byte pages and UTF-8, and for
a double-byte page a locale whose system code pages are that page. On a
Western locale a double-byte table is still identified as its page but, with
no table of its own, converted through the system's OEM code page (437): the
test checks that this kept reading is exactly the 437 reading of the bytes."""

import json
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import interop as I  # noqa: E402

tool, _ = I.environment("dbf_write")
folder = I.shared_data("codepage-tables")

WESTERN = {"QUILLET_ACP": "1252", "QUILLET_OEMCP": "437", "QUILLET_LANGID": "9"}
# The primary language of a locale whose system code pages are the page.
DOUBLE_BYTE = {932: "17", 936: "4", 949: "18", 950: "4"}


def locale_for(code_page):
    if code_page not in DOUBLE_BYTE:
        return WESTERN
    page = str(code_page)
    return {"QUILLET_ACP": page, "QUILLET_OEMCP": page, "QUILLET_LANGID": DOUBLE_BYTE[code_page]}


def names(path, env):
    return [record["NAME"] for record in I.quillet_records(tool, path, env)]


with open(os.path.join(folder, "manifest.json"), encoding="utf-8") as f:
    manifest = json.load(f)

c = I.Checker()
c.check(manifest, "the manifest lists no tables")
for entry in manifest:
    path = os.path.join(folder, entry["table"])
    code_page = entry["code_page"]
    try:
        read = names(path, locale_for(code_page))
        c.check(read == entry["names"], "%s under its locale: %r, written %r" % (entry["table"], read, entry["names"]))
        if code_page in DOUBLE_BYTE:
            western = names(path, WESTERN)
            expected = [n.encode(entry["python_encoding"]).decode("cp437") for n in entry["names"]]
            c.check(western == expected, "%s on a Western locale: %r, expected the 437 reading %r"
                    % (entry["table"], western, expected))
    except RuntimeError as error:
        c.check(False, "%s: %s" % (entry["table"], error))

c.finish("%d tables checked" % len(manifest))
