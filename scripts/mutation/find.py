"""Finds the mutants of a source file: small changes to its text, each of which a test should notice.

A mutant is a replacement of one range of the file. Most can also be written as a switch in the running program, see
switches.py; `pieces` says how. Offsets count bytes; texts are decoded as Latin-1, so that both are the same.
"""

import hashlib
import re
from dataclasses import dataclass, field
from pathlib import Path

from clang import cindex
from clang.cindex import CursorKind as Kind

CLANG_ARGUMENTS = ["-std=c++20", "-xc++"]

OPERATORS = {
    "<": ("comparison", ["<=", ">="]),
    "<=": ("comparison", ["<", ">"]),
    ">": ("comparison", [">=", "<="]),
    ">=": ("comparison", [">", "<"]),
    "==": ("comparison", ["!="]),
    "!=": ("comparison", ["=="]),
    "&&": ("logic", ["||"]),
    "||": ("logic", ["&&"]),
    "&": ("logic", ["|"]),
    "|": ("logic", ["&"]),
    "+": ("arithmetic", ["-"]),
    "-": ("arithmetic", ["+"]),
    "*": ("arithmetic", ["/"]),
    "/": ("arithmetic", ["*"]),
    "%": ("arithmetic", ["*"]),
    "<<": ("arithmetic", [">>"]),
    ">>": ("arithmetic", ["<<"]),
    "+=": ("arithmetic", ["-="]),
    "-=": ("arithmetic", ["+="]),
    "*=": ("arithmetic", ["/="]),
    "/=": ("arithmetic", ["*="]),
}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "|=", "&="}
MEMORY_ORDER = re.compile(r"(?:std::)?memory_order_(acquire|release|acq_rel|seq_cst)$")
LOCK = re.compile(r"(const )?CriticalSectionScope\s+(\w+)\((.*)\)\s*$", re.DOTALL)
EXITS = {Kind.RETURN_STMT, Kind.BREAK_STMT, Kind.CONTINUE_STMT, Kind.CXX_THROW_EXPR}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.CONVERSION_FUNCTION,
             Kind.FUNCTION_TEMPLATE}
SCOPES = {Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.CLASS_TEMPLATE, Kind.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION}
VARIABLES = {Kind.VAR_DECL, Kind.FIELD_DECL}


@dataclass
class Piece:
    """One place of a mutant that is switched on: what stands in [start, end) while it is on.

    "expression": `text` instead of the expression. "condition": likewise, both converted to bool.
    "leave out": nothing instead of the statement. "insert": the statement `text` before `start`.
    "lock": nothing instead of the scope of a lock. "declared condition": `text` after the declaration of a condition.
    """
    how: str
    start: int
    end: int
    text: str = ""


@dataclass
class Mutant:
    path: str
    kind: str
    start: int
    end: int
    before: str
    after: str
    function: str = ""
    line: int = 0
    context: str = ""  # the line of a change that says too little by itself
    pieces: list[Piece] = field(default_factory=list)
    id: str = ""   # stable while the function and the changed text are
    key: str = ""  # of the mutant in this very text of the file

    def change(self):
        context = f" {self.context}" if self.context else ""
        return f"{one_line(self.before)} -> {one_line(self.after) or '(nothing)'}{context}"

    def apply(self, text):
        return text[:self.start] + self.after + text[self.end:]


def one_line(text):
    return " ".join(text.split())


def digest(*parts):
    return hashlib.sha256("\0".join(parts).encode("utf-8", "surrogateescape")).hexdigest()[:16]


def read(path):
    return Path(path).read_bytes().decode("latin-1")


def find_mutants(root, path, include_directories=()):
    """Returns the mutants of `path`, a file below `root`, in the order of the text."""
    text = read(Path(root) / path)
    arguments = CLANG_ARGUMENTS + [f"-I{directory}" for directory in include_directories]
    unit = cindex.Index.create().parse(str(Path(root) / path), args=arguments,
                                       options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
    errors = [d for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
    if errors:
        raise RuntimeError(f"{path} does not parse: {errors[0].spelling} ({errors[0].location})")
    finder = Finder(path, text, unit)
    finder.macros_of_the_file()
    finder.visit(unit.cursor, [])
    return finder.finish()


class Finder:
    def __init__(self, path, text, unit):
        self.path = path
        self.text = text
        self.file = unit.spelling
        self.unit = unit
        self.found = {}
        self.macros = []
        self.constants = []  # ranges that the compiler evaluates
        self.functions = []  # (start, end, name)

    # The results

    def add(self, kind, start, end, after, pieces):
        before = self.text[start:end]
        if before == after or (start, end, after) in self.found:
            return
        self.found[start, end, after] = Mutant(self.path, kind, start, end, before, after, pieces=pieces)

    def replace(self, kind, extent, after, how="expression", switched=None):
        start, end = extent
        self.add(kind, start, end, after, [Piece(how, start, end, after if switched is None else switched)])

    def finish(self):
        mutants = sorted(self.found.values(), key=lambda m: (m.start, m.end, m.after))
        occurrences = {}
        for mutant in mutants:
            around = [f for f in self.functions if f[0] <= mutant.start and mutant.end <= f[1]]
            mutant.function = max(around, key=lambda f: f[0])[2] if around else ""
            mutant.line = self.text.count("\n", 0, mutant.start) + 1
            mutant.context = self.context(mutant)
            if any(start <= mutant.start and mutant.end <= end for start, end in self.constants):
                mutant.pieces = []
            name = (mutant.path, mutant.function, mutant.kind, mutant.change())
            nth = occurrences[name] = occurrences.get(name, 0) + 1
            mutant.id = digest(*name, str(nth))[:8]
            mutant.key = digest(self.path, self.text, str(mutant.start), str(mutant.end), mutant.after)
        return mutants

    def context(self, mutant):
        """Returns the line of a single word, and the line before a single "break;" or the like."""
        lines = [one_line(line.split("//")[0]) for line in self.text.split("\n")]
        if re.search(r"\s|\(", mutant.before):
            return ""
        if mutant.before.endswith(";"):
            return "after " + lines[mutant.line - 2] if mutant.kind == "early exit" else ""
        return "in " + lines[mutant.line - 1]

    # Places in the text

    def extent(self, cursor):
        """Returns the range of a cursor, or None if it is not wholly written in this file."""
        start, end = cursor.extent.start, cursor.extent.end
        if start.file is None or start.file.name != self.file or end.file is None or end.file.name != self.file:
            return None
        return (start.offset, end.offset) if start.offset < end.offset else None

    def of(self, extent):
        return self.text[extent[0]:extent[1]]

    def is_in_macro(self, extent):
        return any(m[0] <= extent[0] and extent[1] <= m[1] for m in self.macros)

    def statement_end(self, end):
        """Returns the end of a statement whose expression ends at `end`, or None if no semicolon follows."""
        semicolon = re.compile(r"\s*;").match(self.text, end)
        return semicolon.end() if semicolon else None

    # Macros: their arguments have no place of their own in the syntax tree

    def macros_of_the_file(self):
        for cursor in self.unit.cursor.get_children():
            extent = self.extent(cursor)
            if extent is None:
                continue
            if cursor.kind == Kind.MACRO_INSTANTIATION:
                self.macros.append(extent)
                if cursor.spelling.endswith("_ASSERT"):
                    self.assertion(extent)
            elif cursor.kind == Kind.MACRO_DEFINITION:
                for literal in re.finditer(r'"[^"\n]+"', self.of(extent)):
                    start = extent[0] + literal.start()
                    self.add("string", start, start + len(literal[0]), '""', [])

    def assertion(self, extent):
        """An assertion macro: its condition, its text, and its line."""
        parts = re.fullmatch(r"\w+\((.*?),\s*(\"[^\"]*\"),\s*(\d+)\)", self.of(extent), re.DOTALL)
        if not parts:
            return
        place = lambda i: (extent[0] + parts.start(i), extent[0] + parts.end(i))
        self.replace("condition", place(1), f"!({parts[1]})", "condition")
        self.replace("string", place(2), '""')
        start, end = place(3)
        self.add("number", start, end, str(int(parts[3]) + 1), [])  # becomes a text: no switch can change it

    # The syntax tree

    def visit(self, cursor, parents):
        for child in cursor.get_children():
            if cursor.kind == Kind.TRANSLATION_UNIT and (
                    child.location.file is None or child.location.file.name != self.file):
                continue
            if child.kind.is_preprocessing():
                continue
            extent = self.extent(child)
            if extent and self.is_in_macro(extent):
                continue
            if extent:
                self.look_at(child, extent, parents + [cursor])
            if child.kind == Kind.CASE_STMT:
                label, *rest = child.get_children()
                self.constants.append(self.extent(label) or (0, 0))
            self.visit(child, parents + [cursor])

    def look_at(self, cursor, extent, parents):
        kind = cursor.kind
        if kind in FUNCTIONS:
            names = [p.spelling for p in parents if p.kind in SCOPES] + [cursor.spelling]
            self.functions.append((*extent, "::".join(names)))
        elif kind in VARIABLES:
            self.variable(cursor, extent, parents)
        elif kind in (Kind.ENUM_CONSTANT_DECL, Kind.STATIC_ASSERT):
            self.constants.append(extent)
        elif kind == Kind.COMPOUND_STMT:
            self.statements(list(cursor.get_children()), parents[-1].kind in FUNCTIONS | {Kind.LAMBDA_EXPR})
        elif kind in (Kind.CASE_STMT, Kind.DEFAULT_STMT):
            self.statements(list(cursor.get_children())[-1:], False)
        elif kind in (Kind.IF_STMT, Kind.WHILE_STMT):
            self.if_or_while(cursor)
        elif kind == Kind.DO_STMT:
            self.condition(list(cursor.get_children())[-1])
        elif kind == Kind.FOR_STMT:
            self.for_statement(cursor, extent)
        elif kind == Kind.CONDITIONAL_OPERATOR:
            self.condition(next(cursor.get_children()))
        elif kind in (Kind.INTEGER_LITERAL, Kind.FLOATING_LITERAL):
            self.number(extent)
        elif kind == Kind.STRING_LITERAL:
            self.string(extent)
        elif kind == Kind.CHARACTER_LITERAL:
            self.character(extent)
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR:
            self.replace("boolean", extent, "false" if self.of(extent) == "true" else "true")
        elif kind == Kind.DECL_REF_EXPR:
            self.name(cursor, extent)
        elif kind == Kind.UNARY_OPERATOR:
            self.unary(extent)
        elif kind == Kind.INIT_LIST_EXPR:
            self.swap_arguments(list(cursor.get_children()))
        elif kind.is_expression() and not self.binary(cursor, extent) and kind == Kind.CALL_EXPR:
            self.swap_arguments(list(cursor.get_arguments()))

    def variable(self, cursor, extent, parents):
        if "constexpr" in self.text[extent[0]:cursor.location.offset].split():
            self.constants.append(extent)
        if not any(p.kind in FUNCTIONS for p in parents):
            self.functions.append((*extent, cursor.spelling))
        whole = self.of(extent)
        lock = LOCK.match(whole)
        end = self.statement_end(extent[1])
        if lock and end:
            after = f"{lock[1] or ''}qx_mutation::Unless<CriticalSectionScope> {lock[2]}(%s, {lock[3]});"
            self.add("lock", extent[0], end, "", [Piece("lock", extent[0], end, after)])

    # Statements

    def statements(self, cursors, is_body):
        previous = None
        for cursor in cursors:
            extent = self.extent(cursor)
            end = self.statement_end(extent[1]) if extent else None
            if end is None:
                previous = None
                continue
            start = extent[0]
            is_last = cursor is cursors[-1]
            if cursor.kind in EXITS:
                if not (is_last and is_body):
                    self.add("early exit", start, end, "", [Piece("leave out", start, end)])
                previous = None
            elif cursor.kind.is_expression():
                self.add("statement", start, end, "", [Piece("leave out", start, end)])
                # What assignments do in another order is what they do when one is left out, or nothing.
                is_call = not self.is_assignment(cursor)
                if previous and is_call:
                    first, second = self.of(previous), self.text[start:end]
                    between = self.text[previous[1]:start]
                    self.add("order", previous[0], end, second + between + first,
                             [Piece("insert", *previous, second), Piece("leave out", start, end)])
                previous = (start, end) if is_call else None
            else:
                previous = None

    def is_assignment(self, cursor):
        written = self.of(self.extent(cursor))
        return cursor.kind == Kind.UNARY_OPERATOR or re.match(r"[\w.:*>-]+\s*[-+*/|&]?=[^=]", written) is not None

    def if_or_while(self, cursor):
        children = list(cursor.get_children())
        body = next((c for c in children if c.kind == Kind.COMPOUND_STMT), None)
        if body is None or body is children[0]:
            return
        declared = next((c for c in children if c.kind == Kind.VAR_DECL), None)
        if declared is None:
            self.condition(children[children.index(body) - 1])
        elif cursor.kind == Kind.IF_STMT and (extent := self.extent(declared)):
            start, end = extent
            name = declared.spelling
            self.add("condition", start, end, f"{self.of(extent)}; !{name}",
                     [Piece("declared condition", start, end, name)])

    def for_statement(self, cursor, extent):
        header = re.compile(r"for\s*\([^;]*;([^;]*);").match(self.text, extent[0])
        for child in cursor.get_children():
            place = self.extent(child)
            if header and place and header.start(1) <= place[0] and place[1] <= header.end(1):
                self.condition(child)

    def condition(self, cursor):
        extent = self.extent(cursor)
        if extent is None or self.is_in_macro(extent):
            return
        whole = self.of(extent)
        operator = self.operator_of(cursor)
        # The opposite of an equality is made where the operator is changed, that of a negation where it is dropped.
        if whole.startswith("!") and cursor.kind == Kind.UNARY_OPERATOR or operator and operator[2] in ("==", "!="):
            return
        self.replace("condition", extent, f"!({whole})", "condition")

    # Expressions

    def operator_of(self, cursor):
        """Returns the extents of the operands of a binary operator and its text, or None."""
        extent = self.extent(cursor)
        extents = [e for e in (self.extent(c) for c in cursor.get_children()) if e]
        extents = sorted({e for e in extents if e != extent})
        if extent is None or len(extents) < 2 or extents[0][0] != extent[0] or extents[-1][1] != extent[1]:
            return None
        left, right = extents[0], extents[-1]
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", self.text[left[1]:right[0]], flags=re.DOTALL).strip()
        return (left, right, text) if text in OPERATORS or text in ASSIGNMENTS else None

    def binary(self, cursor, extent):
        operator = self.operator_of(cursor)
        if operator is None:
            return False
        left, right, text = operator
        kind, others = OPERATORS.get(text, ("", []))
        between = self.text[left[1]:right[0]]
        for other in others:
            self.replace(kind, extent, self.of(left) + between.replace(text, other, 1) + self.of(right))
        return True

    def unary(self, extent):
        whole = self.of(extent)
        if whole.startswith(("++", "--")):
            self.replace("arithmetic", extent, ("--" if whole[0] == "+" else "++") + whole[2:])
        elif whole.endswith(("++", "--")):
            self.replace("arithmetic", extent, whole[:-2] + ("--" if whole[-1] == "+" else "++"))
        elif whole.startswith("!"):
            self.replace("condition", extent, whole[1:].strip(), "condition")
        elif whole.startswith("-"):
            self.replace("arithmetic", extent, whole[1:].strip())

    def number(self, extent):
        parts = re.fullmatch(r"(0[xX][0-9a-fA-F]+|\d+(?:\.\d*)?)([a-zA-Z]*)", self.of(extent))
        if not parts:
            return
        digits, suffix = parts[1], parts[2]
        if "." in digits:
            value = float(digits)
            changed = [f"{value + 1}{suffix}"] + ([f"0.0{suffix}"] if value else [])
        else:
            value = int(digits, 0)
            more = hex(value + 1) if digits.lower().startswith("0x") else str(value + 1)
            changed = [more + suffix] + (["0" + suffix] if value else [])
        for after in changed:
            self.replace("number", extent, after)

    def string(self, extent):
        parts = re.match(r'(L|u8)?"', self.of(extent))
        if parts:
            prefix = parts[1] or ""
            empty = f'{prefix}""'
            self.replace("string", extent, f'{prefix}"x"' if self.of(extent) == empty else empty)

    def character(self, extent):
        parts = re.fullmatch(r"(L?)'(\\?)(.)'", self.of(extent))
        if parts:
            self.replace("number", extent, f"{parts[1]}'{parts[2]}{chr(ord(parts[3]) + 1)}'")

    def name(self, cursor, extent):
        whole = self.of(extent)
        target = cursor.referenced
        if MEMORY_ORDER.match(whole):
            self.replace("memory order", extent, MEMORY_ORDER.sub("std::memory_order_relaxed", whole))
        elif target is not None and target.kind == Kind.ENUM_CONSTANT_DECL and whole.endswith(target.spelling):
            values = [c for c in target.semantic_parent.get_children() if c.kind == Kind.ENUM_CONSTANT_DECL]
            names = [c.spelling for c in values]
            at = names.index(target.spelling)
            for other in values[at + 1:] + values[:at]:
                if other.enum_value != target.enum_value:
                    self.replace("enumerator", extent, whole[:-len(target.spelling)] + other.spelling)
                    break

    def swap_arguments(self, arguments):
        for first, second in zip(arguments, arguments[1:]):
            one, two = self.extent(first), self.extent(second)
            if not one or not two or one[1] > two[0] or self.is_in_macro(one) or self.is_in_macro(two):
                continue
            if Kind.INIT_LIST_EXPR in (first.kind, second.kind) or self.of(one) == self.of(two):
                continue
            if plain_type(first) != plain_type(second) or "dependent" in plain_type(first):
                continue
            between = self.text[one[1]:two[0]]
            self.add("arguments", one[0], two[1], self.of(two) + between + self.of(one),
                     [Piece("expression", *one, self.of(two)), Piece("expression", *two, self.of(one))])


def plain_type(cursor):
    spelling = cursor.type.get_canonical().spelling
    return re.sub(r"\bconst\b|&", "", re.sub(r"\[\d*\]", "[]", spelling)).strip()
