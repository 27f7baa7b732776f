"""Where the instructions of a run go, read from callgrind's file of it."""
import re
from collections import Counter

SHARES = ("sd-bus", "allocation", "C library", "strings", "entities", "traces", "own code")

# The names that each key of a callgrind file shares its numbers with.
SPACES = {"ob": "ob", "cob": "ob", "fl": "fl", "fi": "fl", "fe": "fl", "cfi": "fl", "cfl": "fl",
          "fn": "fn", "cfn": "fn"}


def share(place):
    """The share that code of this object, source file and function belongs to."""
    if "libsystemd.so" in place["ob"]:
        return "sd-bus"
    if "steady.so" in place["ob"] or place["fn"].startswith("operator "):
        return "allocation"
    if re.search(r"/platform/(entity|memory)/", place["fl"]):
        return "entities"
    if "/platform/trace/" in place["fl"]:
        return "traces"
    if re.search(r"/platform/value/|basic_string|string_view|char_traits", place["fl"]):
        return "strings"
    return "own code" if re.search("client-|libSodrel", place["ob"]) else "C library"


def read(file):
    """Returns the instructions by share."""
    names, place, counted = {}, {"ob": "", "fl": "", "fn": ""}, Counter()
    inclusive = False
    for line in file.read_text().splitlines():
        key, equals, value = line.partition("=")
        if key in SPACES:
            identity, _, name = value.partition(" ")
            if name:
                names[SPACES[key], identity] = name
            if not key.startswith("c"):
                place[SPACES[key]] = names[SPACES[key], identity]
        elif key == "calls":
            inclusive = True  # The next line counts what the callee counts itself.
        elif line[:1].isdigit() or line[:1] in "+-*":
            if line and not inclusive:
                counted[share(place)] += int(line.split()[1])
            inclusive = False
    return counted
