"""Finds the mutants of C++ sources and writes sources in which they are switched on."""
import collections
import dataclasses
import re

from clang.cindex import CursorKind as Kind, Index, TranslationUnit

OPERATORS = {
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"], "^": ["|"],
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "==": ["!="], "!=": ["=="], "&&": ["||"], "||": ["&&"],
    "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="],
    "|=": ["&="], "&=": ["|="], "<<=": [">>="], ">>=": ["<<="],
}
COMPARISONS = ("<", "<=", ">", ">=", "==", "!=")
JUMPS = (Kind.BREAK_STMT, Kind.CONTINUE_STMT)
LOOPS_AND_BRANCHES = (Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT, Kind.DO_STMT)
# Macros that are mutated as statements, because their arguments become text.
STATEMENT_MACROS = ("TRACE", "TESSEL_ASSERT")
LITERAL = r'"(?:[^"\\\n]|\\.)*"'


@dataclasses.dataclass(eq=False)
class Mutant:
    """Replaces places of a file; `name` holds the source line and the change."""
    file: str
    lines: range  # that it changes, counted from 1
    name: str
    edits: tuple  # of (start, end, code), in their order; statements end in ";"
    number: int = 0


def flat(text):
    """The code on one line, without comments."""
    text = re.sub(f"({LITERAL})|//[^\n]*", lambda match: match[1] or "", text)
    return re.sub(r"\s*\n\s*", " ", text)


def other_text(literal):
    """A string or character literal with another character in it."""
    if literal in ('""', "''"):
        return '"x"'
    letter = re.search(r"(?<![\\%{])[A-Za-z]", literal[1:-1])
    at = 1 + letter.start() if letter else 1
    width = 2 if literal[at] == "\\" else 1
    return literal[:at] + ("y" if literal[at] == "x" else "x") + literal[at + width:]


def span(node):
    return node.extent.start.offset, node.extent.end.offset


class Finder:
    """Collects the mutants of sources, which are texts by their paths."""

    def __init__(self, sources):
        self.sources = sources
        self.found = {path: {} for path in sources}

    def parse(self, path, *arguments):
        """Adds the mutants of one source file and of those that it includes."""
        unit = Index.create().parse(
            path, ["-std=c++20", *arguments], list(self.sources.items()),
            TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [str(each) for each in unit.diagnostics if each.severity >= 3]
        if errors:
            raise SystemExit("\n".join(errors))
        tops = [top for top in unit.cursor.get_children()
                if top.location.file and top.location.file.name in self.sources]
        macros = collections.defaultdict(list)
        for top in tops:
            if top.kind == Kind.MACRO_INSTANTIATION:
                macros[top.location.file.name].append((*span(top), top.spelling))
        for top in tops:
            if not top.kind.is_preprocessing():
                self.path = top.location.file.name
                self.text = self.sources[self.path]
                self.macros = macros[self.path]
                self.visit(top)

    def add(self, place, change, *edits):
        self.found[self.path].setdefault((place, edits[0][1], change), edits)

    def macro_around(self, start, end):
        return next((name for first, last, name in self.macros
                     if first <= start and end <= last), None)

    def visit(self, node):
        if node.kind.is_attribute() or node.kind == Kind.STATIC_ASSERT:
            return
        children = list(node.get_children())
        for child in children:
            self.visit(child)
        start, end = span(node)
        if start < end and not self.macro_around(start, end):
            self.mutate(node, children)

    def mutate(self, node, children):
        start, end = span(node)
        text, kind = self.text[start:end], node.kind

        def add(old, new, code=None):
            self.add(start, flat(f"{old} => {new}"), (start, end, flat(code or new)))

        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.operator(node, children, OPERATORS)
        elif kind == Kind.CALL_EXPR and node.spelling.startswith("operator"):
            # A class with one arithmetic operator rarely has the other.
            self.operator(node, children[:1] + children[2:], COMPARISONS)
        elif kind == Kind.UNARY_OPERATOR and text[0] in "!~":
            add(text, text[1:].lstrip(), f"bool( {text[1:]} )" if text[0] == "!" else text[1:])
        elif kind == Kind.UNARY_OPERATOR and text[0] not in "*&":
            for old, new in (("++", "--"), ("--", "++"), ("-", "+")):
                if text.startswith(old) or text.endswith(old):
                    add(old, new, text.replace(old, new))
                    break
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR and text in ("true", "false"):
            add(text, "false" if text == "true" else "true")
        elif kind in (Kind.INTEGER_LITERAL, Kind.FLOATING_LITERAL) and text[0].isdigit():
            add(text, f"{text} + 1")
            add(text, f"{text} - 1")
        elif kind in (Kind.STRING_LITERAL, Kind.CHARACTER_LITERAL) and text[0] in "\"'":
            add(text, other_text(text))
        elif kind == Kind.COMPOUND_STMT:
            self.statements(children)
        elif kind == Kind.CONDITIONAL_OPERATOR:
            self.condition(children[0])
        elif kind in LOOPS_AND_BRANCHES:
            end = ";" if kind == Kind.FOR_STMT else ")"
            for child in filter(lambda each: each.kind.is_expression(), children):
                before, after = self.text[:span(child)[0]], self.text[span(child)[1]:]
                if before.rstrip()[-1] in "(;" and after.lstrip()[0] == end:
                    self.condition(child)

    def operator(self, node, operands, wanted):
        if len(operands) != 2:
            return
        (start, left_end), (right_start, end) = map(span, operands)
        operator = self.text[left_end:right_start].strip()
        if (start, end) != span(node) or operator not in wanted:
            return
        left, right = self.text[start:left_end], self.text[right_start:end]
        place = self.text.index(operator, left_end)
        for other in OPERATORS[operator]:
            self.add(place, f"{operator} => {other}",
                     (start, end, flat(f"( {left} ) {other} ( {right} )")))

    def condition(self, node):
        start, end = span(node)
        self.add(start, "negated", (start, end, f"!( {flat(self.text[start:end])} )"))

    def statements(self, children):
        """Removes statements one at a time, and swaps neighbours."""
        before = None
        for child in children:
            start, end = span(child)
            macro = self.macro_around(start, end)
            text = self.text[start:end]
            jump = child.kind in JUMPS or text == "return" or text.startswith("throw")
            plain = not jump and (
                macro in STATEMENT_MACROS or child.kind.is_expression() and not macro)
            if jump or plain:
                end = self.text.index(";", end) + 1
                self.add(start, "removed", (start, end, ";"))
            if macro in STATEMENT_MACROS:
                self.macro(start, end)
            if plain and before:
                self.swap(before, (start, end))
            before = (start, end) if plain else None

    def macro(self, start, end):
        text = self.text[start:end]
        for old in (*re.findall(r"^TRACE\(\s*(\d+)", text), re.search(LITERAL, text)[0]):
            new = f"{old} + 1" if old.isdigit() else other_text(old)
            self.add(start, f"{old} => {new}", (start, end, flat(text.replace(old, new, 1))))

    def swap(self, first, second):
        texts = [flat(self.text[start:end]) for start, end in (first, second)]
        # The order of plain assignments to different places makes no difference.
        plain = [re.fullmatch(r"([^=(]+) = [^(]+;", text) for text in texts]
        if all(plain) and plain[0][1] not in texts[1] and plain[1][1] not in texts[0]:
            return
        if "\n#" not in self.text[first[0]:second[1]]:
            self.add(first[0], "swapped with the next",
                     (*first, f"{texts[1]} {texts[0]}"), (*second, ";"))

    def mutants(self, path, file):
        """The mutants of one source in their order, with names that differ."""
        text, lines = self.sources[path], self.sources[path].split("\n")
        mutants, counts = [], collections.Counter()
        for (place, _, change), edits in sorted(self.found[path].items()):
            name = flat(lines[text.count("\n", 0, place)]).strip() + f" // {change}"
            counts[name] += 1
            suffix = f" ({counts[name]})" if counts[name] > 1 else ""
            changed = [text.count("\n", 0, at) + 1 for at in (edits[0][0], edits[-1][1])]
            mutants.append(Mutant(file, range(changed[0], changed[1] + 1), name + suffix, edits))
        return mutants


def switchable(text, mutants):
    """The text with all these mutants in it, each of which is on where mutant( number ) is true."""
    ways = collections.defaultdict(list)
    for mutant in mutants:
        for start, end, code in mutant.edits:
            ways[(start, end)].append((mutant.number, code))
    grown = []  # where places began that are written already, and by how much they grew
    for start, end in sorted(ways, key=lambda place: (-place[0], place[1])):
        now = end + sum(growth for at, growth in grown if at < end)
        code = switched(text[start:now], ways[(start, end)])
        grown.append((start, len(code) - (now - start)))
        text = text[:start] + code + text[now:]
    return text


def switched(inner, ways):
    """The code, or one of the other ways."""
    if inner.endswith(";"):
        others = (f"if( ::mutant( {number} ) ) {{ {code} }} else " for number, code in ways)
        return "".join(others) + f"{{ {inner} }}"
    if any(code.startswith("!( ") for _, code in ways):
        inner = f"bool( {inner} )"  # as its negation is
    others = (f"::mutant( {number} ) ? ( {code} ) : " for number, code in ways)
    return f"( {''.join(others)}{inner} )"


def alone(text, mutant):
    """The text with this mutant in it and on, at compile time too."""
    return switchable(text, [mutant]).replace(f"::mutant( {mutant.number} )", "true")
