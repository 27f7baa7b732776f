"""Finds the mutants of C++ sources and writes sources in which each can be switched on."""
import dataclasses
import re

from clang.cindex import CursorKind as Kind, Index, TranslationUnit, TypeKind

OPERATORS = {
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"], "^": ["|"],
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "==": ["!="], "!=": ["=="], "&&": ["||"], "||": ["&&"],
    "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="],
    "|=": ["&="], "&=": ["|="], "<<=": [">>="], ">>=": ["<<="],
}
NEGATED = {"<", "<=", ">", ">=", "==", "!="}
JUMPS = (Kind.BREAK_STMT, Kind.CONTINUE_STMT)
FUNCTIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR,
             Kind.FUNCTION_TEMPLATE, Kind.CONVERSION_FUNCTION)


@dataclasses.dataclass(eq=False)
class Mutant:
    """`code` instead of what stands from `start` to `end`; `old` and `new` tell people."""
    start: int
    end: int
    kind: str
    code: str
    old: str
    new: str
    file: str = ""
    line: int = 0
    lineText: str = ""
    number: int = 0
    function: str = ""

    def keys(self):
        """By which it can be dismissed: with its function or without."""
        change = f"{self.old} => {self.new}"
        return ((self.file, self.lineText, change),
                (f"{self.file} {self.function}", self.lineText, change))


def flat(text):
    """The code on one line, without comments."""
    text = re.sub(r'("(?:[^"\\\n]|\\.)*")|//[^\n]*', lambda match: match[1] or "", text)
    return re.sub(r"\s*\n\s*", " ", text)


def otherText(literal):
    """A string or character literal, one character of which is another one."""
    if literal in ('""', "''"):
        return '"x"'
    at = re.search(r"(?<![\\%{\w])[A-Za-z]|(?<=[^\\%{][A-Za-z])[A-Za-z]", literal[1:])
    place = 1 + at.start() if at else 1
    if literal[place] == "\\":
        return literal[:place] + "x" + literal[place + 2:]
    letter = literal[place]
    return literal[:place] + ("y" if letter == "x" else "x") + literal[place + 1:]


def withoutAssertions(text):
    """The text with the assertions' macro written out, as mutants cannot stand in its argument."""
    return re.sub(
        r"^( +)TESSEL_ASSERT\(((?:[^;\"]|\"[^\"]*\")*?),(\s*(?:\"[^\"]*\"\s*)+)\);",
        lambda found: f"{found[1]}( ({found[2]} ) ? MUTATION_NOTHING : ::Tessel::Impl::assertFailed( "
                      f"__FILE__, __LINE__,{found[3]}, MUTATION_TEXT({flat(found[2])} ) ) );",
        text, flags=re.MULTILINE)


def isPointer(node):
    return node.type.get_canonical().kind == TypeKind.POINTER


def independent(first, second, texts):
    """Whether these are assignments whose order makes no difference."""
    sides = [text.partition(" = ")[0] for text in texts]
    return all(" = " in text for text in texts) and \
        sides[0] not in texts[1] and sides[1] not in texts[0] and \
        not any(node.kind == Kind.CALL_EXPR and node.spelling != "operator->"
                for statement in (first, second) for node in statement.walk_preorder())


class Finder:
    """Collects the mutants of one translation unit's files, by file."""

    def __init__(self, sources):
        self.sources = sources  # the text of each file by its path
        self.found = {path: {} for path in sources}
        self.comparisons = set()  # which are negated by another operator
        self.index = Index.create()

    def parse(self, path, arguments):
        unit = self.index.parse(
            path, arguments, list(self.sources.items()),
            TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [str(diagnostic) for diagnostic in unit.diagnostics if diagnostic.severity >= 3]
        if errors:
            raise SystemExit("\n".join(errors))
        self.macros = {}
        tops = [top for top in unit.cursor.get_children()
                if top.location.file and top.location.file.name in self.sources]
        for top in tops:
            if top.kind == Kind.MACRO_INSTANTIATION:
                self.macros.setdefault(top.location.file.name, []).append(
                    (top.extent.start.offset, top.extent.end.offset, top.spelling))
        for top in tops:
            self.path = top.location.file.name
            self.text = self.sources[self.path]
            self.function = ""
            if top.kind == Kind.MACRO_INSTANTIATION and top.spelling == "TRACE_FACILITY":
                self.facility(top.extent.start.offset, top.extent.end.offset)
            elif not top.kind.is_preprocessing():
                self.visit(top, [])

    def add(self, start, end, kind, code, old=None, new=None):
        old = flat(self.text[start:end] if old is None else old)
        new = flat(code if new is None else new)
        self.found[self.path].setdefault((start, end, new), Mutant(
            start, end, kind, flat(code), old, new, function=self.function))

    def macroAround(self, start, end):
        return next((name for first, last, name in self.macros.get(self.path, [])
                     if first <= start and end <= last), None)

    def facility(self, start, end):
        literal = re.search(r'"[^"]*"', self.text[start:end])
        first = start + literal.start()
        self.add(first, start + literal.end(), "text", otherText(literal[0]))

    def visit(self, node, parents):
        start, end = node.extent.start.offset, node.extent.end.offset
        if node.kind.is_attribute():
            return
        self.function = next((parent.spelling for parent in reversed(parents)
                              if parent.kind in FUNCTIONS), "")
        children = list(node.get_children())
        if start < end and not self.macroAround(start, end):
            self.mutate(node, children, start, end, parents)
        if node.kind == Kind.STATIC_ASSERT:
            children = children[:1]
        for child in children:
            self.visit(child, parents + [node])

    def mutate(self, node, children, start, end, parents):
        text, kind = self.text[start:end], node.kind
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) and len(children) == 2:
            self.operator(start, end, children[0], children[1])
        elif kind == Kind.CALL_EXPR and len(children) == 3 and \
                node.spelling.startswith("operator"):
            # A class with one arithmetic operator rarely has the other.
            self.operator(start, end, children[0], children[2], NEGATED)
        elif kind == Kind.UNARY_OPERATOR:
            self.unary(start, end, text, children[0])
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR and text in ("true", "false"):
            self.add(start, end, "constant", "false" if text == "true" else "true")
        elif kind in (Kind.INTEGER_LITERAL, Kind.FLOATING_LITERAL) and text[0].isdigit():
            self.add(start, end, "constant", f"{text} + 1")
            self.add(start, end, "constant", f"{text} - 1")
        elif kind in (Kind.STRING_LITERAL, Kind.CHARACTER_LITERAL) and text[0] in "\"'":
            self.add(start, end, "text", otherText(text))
        elif kind == Kind.COMPOUND_STMT:
            self.statements(children, parents)
        if kind == Kind.CONDITIONAL_OPERATOR:
            self.condition(children[0])
        elif kind in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT, Kind.DO_STMT):
            for child in children:
                self.conditionOf(kind, child)

    def operator(self, start, end, left, right, wanted=OPERATORS):
        leftEnd, rightStart = left.extent.end.offset, right.extent.start.offset
        operator = self.text[leftEnd:rightStart].strip()
        if left.extent.start.offset != start or right.extent.end.offset != end or \
                operator not in wanted:
            return
        if operator == "-" and isPointer(left) and isPointer(right):
            return
        lhs, rhs = self.text[start:leftEnd], self.text[rightStart:end]
        if operator in NEGATED:
            self.comparisons.add((self.path, start, end))
        for other in OPERATORS.get(operator, []):
            self.add(start, end, "operator", f"( {lhs} ) {other} ( {rhs} )",
                     new=f"{lhs} {other} {rhs}")

    def unary(self, start, end, text, operand):
        inner = self.text[operand.extent.start.offset:operand.extent.end.offset]
        other = {"++": "--", "--": "++"}
        if text[:2] in other:
            self.add(start, end, "operator", other[text[:2]] + text[2:])
        elif text[-2:] in other:
            self.add(start, end, "operator", text[:-2] + other[text[-2:]])
        elif text[0] in "!-~" and text[1:].lstrip() == inner:
            code = f"bool( {inner} )" if text[0] == "!" else f"( {inner} )"
            self.add(start, end, "operator", code, new=inner)

    def conditionOf(self, kind, child):
        before = self.text[:child.extent.start.offset].rstrip()[-1:]
        after = self.text[child.extent.end.offset:].lstrip()[:1]
        if child.kind == Kind.VAR_DECL and kind == Kind.IF_STMT:
            start, end = child.extent.start.offset, child.extent.end.offset
            negation = f"!{child.spelling}"
            self.add(start, end, "declaration", negation,
                     new=f"{self.text[start:end]}; {negation}")
        elif child.kind.is_expression() and before in "(;" and after == (
                ";" if kind == Kind.FOR_STMT else ")"):
            self.condition(child)

    def condition(self, node):
        start, end = node.extent.start.offset, node.extent.end.offset
        text = self.text[start:end]
        if text[0] != "!" and text not in ("true", "false"):
            self.add(start, end, "condition", f"!( {text} )", new=f"!( {text} )")

    def statements(self, children, parents):
        run = []
        for child in children + [None]:
            start, end = (child.extent.start.offset, child.extent.end.offset) if child else (0, 0)
            macro = child and self.macroAround(start, end)
            text = self.text[start:end]
            thrown = text.startswith("throw")
            if child and (child.kind in JUMPS or text == "return" or thrown):
                last = child == children[-1] and parents and parents[-1].kind in FUNCTIONS
                if not (thrown and last):
                    self.remove(start, end)
            elif child and (macro == "TRACE" or child.kind.is_expression() and not macro):
                end = self.remove(start, end)
                if macro:
                    self.trace(start, end)
                run.append((start, end, child))
                continue
            if len(run) > 1:
                self.swaps(run)
            run = []

    def remove(self, start, end):
        end = self.text.index(";", end) + 1
        self.add(start, end, "removal", ";", new="")
        return end

    def trace(self, start, end):
        text = self.text[start:end]
        parts = re.match(r'TRACE\(\s*(\d+),\s*((?:"(?:[^"\\]|\\.)*"\s*)+)', text)
        level, words = parts[1], parts[2].rstrip()
        self.add(start, end, "statement", text.replace(level, str(int(level) + 1), 1))
        self.add(start, end, "statement", text.replace(words, otherText(words), 1))

    def swaps(self, run):
        first, last = run[0][0], run[-1][1]
        texts = [self.text[start:end] for start, end, _ in run]
        for at in range(len(run) - 1):
            if "\n#" in self.text[first:last] or independent(
                    run[at][2], run[at + 1][2], texts[at:at + 2]):
                continue
            swapped = texts[:at] + [texts[at + 1], texts[at]] + texts[at + 2:]
            start, end = run[at][0], run[at + 1][1]
            old, new = f"{texts[at]} {texts[at + 1]}", f"{texts[at + 1]} {texts[at]}"
            key = (start, end, flat(new))
            self.found[self.path].setdefault(key, Mutant(
                first, last, "swap", flat(" ".join(swapped)), flat(old), flat(new),
                function=self.function))
            self.found[self.path][key].line = start

    def mutants(self, path, shown, original):
        """The file's mutants in their order, known by the lines of the original."""
        lines = original.split("\n")
        found = [mutant for mutant in self.found[path].values() if mutant.kind != "condition"
                 or (path, mutant.start, mutant.end) not in self.comparisons]
        for mutant in found:
            at = mutant.line if mutant.kind == "swap" else mutant.start
            number = self.sources[path].count("\n", 0, at)
            mutant.file, mutant.line, mutant.lineText = shown, number + 1, lines[number].strip()
        return sorted(found, key=lambda mutant: (mutant.start, -mutant.end))


def alone(text, mutant):
    """The text with this mutant in it."""
    code = mutant.code
    if mutant.kind in ("operator", "constant", "condition"):
        code = f"( {code} )"
    elif mutant.kind == "declaration":
        code = f"{text[mutant.start:mutant.end]}; {code}"
    if "\n" in text[mutant.start:mutant.end]:
        code += "\n" * text.count("\n", mutant.start, mutant.end)
    return text[:mutant.start] + code + text[mutant.end:]


def switchable(text, mutants):
    """The text with all these mutants in it, each of which is on when mutant( number ) says so."""
    spans = {}
    for mutant in mutants:
        # A run of statements stands around its first statement, a statement around its expression.
        order = {"swap": 0, "removal": 1, "statement": 1}.get(mutant.kind, 2)
        spans.setdefault((mutant.start, -mutant.end, order), []).append(mutant)
    ordered = sorted(spans)

    def render(at, end, place):
        """The text from `at` to `end`, and the place of the first span behind it."""
        pieces = []
        while place < len(ordered) and ordered[place][0] < end:
            start, minusEnd, order = ordered[place]
            inner, following = render(start, -minusEnd, place + 1)
            pieces += [text[at:start], switched(inner, spans[ordered[place]], order)]
            at, place = -minusEnd, following
        return "".join(pieces) + text[at:end], place

    return render(0, len(text), 0)[0]


def switched(inner, mutants, order):
    if order == 2:
        if mutants[0].kind == "declaration":
            name = mutants[0].code[1:]
            return f"{inner}; mutant( {mutants[0].number} ) ? !{name} : bool( {name} )"
        ways = "".join(f"::mutant( {mutant.number} ) ? ( {mutant.code} ) : " for mutant in mutants)
        # Whatever a condition is, its negation is a bool.
        isCondition = any(mutant.kind == "condition" for mutant in mutants)
        return f"( {ways}bool( {inner} ) )" if isCondition else f"( {ways}{inner} )"
    ways = "".join(f"if( ::mutant( {mutant.number} ) ) {{ {mutant.code} }} else "
                   for mutant in mutants)
    return f"{ways}{{ {inner} }}"
