# Reads each XML file of a folder with ElementTree and compares it with the text beside it, in which the names,
# keys and texts stand as they were given. What they have to look like in XML is worked out here once more.
import pathlib
import re
import sys
from xml.etree import ElementTree
from xml.parsers import expat


def characters(data):
    """UTF-8, and of every byte that is none the character of its number."""
    text = ""
    while data:
        for size in range(1, 5):
            try:
                c = data[:size].decode()
            except UnicodeDecodeError:
                continue
            if len(c) == 1 and c not in "\ufffe\uffff":
                break
        else:
            size, c = 1, chr(data[0])
        text += c
        data = data[size:]
    return text


letters = {}


def is_letter(c):
    if c not in letters:
        try:
            expat.ParserCreate().Parse("<%s/>" % c, True)
            letters[c] = c not in "_:"
        except expat.ExpatError:
            letters[c] = False
    return letters[c]


def group(c):
    return "_x%0*X_" % (4 if ord(c) < 0x10000 else 8, ord(c))


GROUP = re.compile("x([0-9A-Fa-f]{4}|[0-9A-Fa-f]{8})_")


def is_character(digits):
    return int(digits, 16) <= 0x10FFFF and not 0xD800 <= int(digits, 16) < 0xE000


def xml_name(data):
    text = characters(data)
    if text in ("", "_x_"):
        return "_x_" if text == "" else "_x005F_x_"
    name = ""
    for c in reversed(text):  # so that what follows an underscore is known
        begins = c == "_" and any(is_character(m[1]) for m in [GROUP.match(name)] if m)
        name = (group(c) if begins or not (is_letter(c) or c in "0123456789_-.") else c) + name
    if text[0] in "0123456789-.":
        name = group(text[0]) + name[1:]
    return name


def xml_key(data):
    return "_x0078_mlns" if data == b"xmlns" else xml_name(data)


def xml_text(data):
    kept = "".join(c for c in characters(data) if c >= " " or c in "\t\n")
    return kept.replace("\\", "\\\\")


def meant(path):
    attributes = {}
    for line in path.read_text().splitlines():
        kind, *fields = line.split(" ")
        fields = [bytes.fromhex(field[1:]) for field in fields]
        if kind == "attribute":
            attributes[xml_key(fields[0])] = xml_text(fields[1])
        elif kind == "value":
            yield "open", xml_name(fields[0]), []
            yield "close", xml_text(fields[1])
        elif kind == "open":
            yield "open", xml_name(fields[0]), list(attributes.items())
            attributes = {}
        else:
            attributes = {}
            yield "close", None


def read(path):
    for event, element in ElementTree.iterparse(path, ("start", "end")):
        if event == "start":
            yield "open", element.tag, list(element.attrib.items())
        else:
            yield "close", element.text or ""
            element.clear()


def same(got, wanted):
    """A scope's own text is indentation."""
    return got == wanted or got[0] == "close" == wanted[0] and wanted[1] is None and not got[1].strip(" \n")


files = sorted(pathlib.Path(sys.argv[1]).glob("*.xml"))
elements = 0
for file in files:
    try:
        got = list(read(file))
    except ElementTree.ParseError as error:
        sys.exit("%s: %s" % (file, error))
    wanted = list(meant(file.with_suffix(".txt")))
    for place, (a, b) in enumerate(zip(got, wanted)):
        if not same(a, b):
            sys.exit("%s: part %d is\n%.300r, not\n%.300r" % (file, place, a, b))
    if len(got) != len(wanted):
        sys.exit("%s: %d parts, not %d" % (file, len(got), len(wanted)))
    elements += len(got) // 2
if elements < 10000:
    sys.exit("only %d elements in %d files" % (elements, len(files)))
