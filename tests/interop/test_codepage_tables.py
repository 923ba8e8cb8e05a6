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

import interop as I

tool, _ = I.environment()
folder = I.shared_data("codepage-tables")
manifest = json.loads(I.read(os.path.join(folder, "manifest.json")))


def locale(acp, oem, language):
    return {"QUILLET_ACP": acp, "QUILLET_OEMCP": oem, "QUILLET_LANGID": language}


def names(path, env):
    return [record["NAME"] for record in I.quillet_records(tool, path, env)]


WESTERN = locale("1252", "437", "9")
# The primary language of a locale whose system code pages are the page.
DOUBLE_BYTE = {932: "17", 936: "4", 949: "18", 950: "4"}

c = I.Checker()
c.check(manifest, "the manifest lists no tables")
for entry in manifest:
    path, cp = os.path.join(folder, entry["table"]), entry["code_page"]
    try:
        read = names(path, locale(str(cp), str(cp), DOUBLE_BYTE[cp]) if cp in DOUBLE_BYTE else WESTERN)
        c.check(read == entry["names"], "%s under its locale: %r, written %r" % (entry["table"], read, entry["names"]))
        if cp in DOUBLE_BYTE:
            western = names(path, WESTERN)
            expected = [n.encode(entry["python_encoding"]).decode("cp437") for n in entry["names"]]
            c.check(western == expected, "%s on a Western locale: %r, expected the 437 reading %r"
                    % (entry["table"], western, expected))
    except RuntimeError as error:
        c.check(False, "%s: %s" % (entry["table"], error))

c.finish("%d tables checked" % len(manifest))
