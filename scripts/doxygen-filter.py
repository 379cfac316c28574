#!/usr/bin/env python3
"""Doxygen input filter for the public headers: their plain comments are the API
reference. The opening paragraph of a header becomes the file's description, a
comment on lines of its own documents what follows it, and a comment after code on
the same line documents that line's member. C block comments likewise. Text that
Doxygen would read as markup (<...>, backslashes, @, #, %) is escaped."""
import re
import sys


def escape(text):
    text = text.replace("\\", "\\\\").replace("@", "\\@").replace("<", "\\<").replace(">", "\\>")
    text = text.replace("#", "\\#").replace("%", "\\%").replace("&", "\\&").replace("$", "\\$")
    return text


def main(path):
    lines = open(path, encoding="utf-8").read().split("\n")
    out, leading = [], True
    in_block = False
    for line in lines:
        stripped = line.strip()
        if in_block:
            body = line.rstrip()
            end = body.endswith("*/")
            text = body[:-2] if end else body
            text = re.sub(r"^\s*\*?", "", text)
            out.append(" * " + escape(text.strip()) + (" */" if end else ""))
            in_block = not end
            continue
        if stripped.startswith("//"):
            text = escape(stripped[2:].strip())
            if leading and not out:
                out.append("/// \\file")
            out.append("/// " + text)
            continue
        if stripped.startswith("/*"):
            single = stripped.endswith("*/") and len(stripped) > 3
            text = stripped[2:-2] if single else stripped[2:]
            prefix = "/** \\file\n * " if leading and not out else "/** "
            out.append(prefix + escape(text.strip()) + (" */" if single else ""))
            in_block = not single
            continue
        if stripped:
            leading = False
        code, sep, comment = line.partition(" // ")
        if sep and code.strip():
            line = code + " ///< " + escape(comment.strip())
        else:
            m = re.match(r"^(.*\S)\s+/\*(.*)\*/\s*$", line)
            if m and not m.group(1).lstrip().startswith("*"):
                line = m.group(1) + " /**< " + escape(m.group(2).strip()) + " */"
        out.append(line)
    sys.stdout.write("\n".join(out))


main(sys.argv[1])
