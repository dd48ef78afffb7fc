"""Writes a source file that holds many mutants at once, each behind a switch (Switch.h).

Only one mutant is ever on, so what stands in place of an expression is its changed text without further switches.
"""

from dataclasses import dataclass, field


@dataclass
class Node:
    start: int
    end: int
    pieces: list = field(default_factory=list)  # (number, piece)
    forced: str | None = None
    children: list = field(default_factory=list)


@dataclass
class Rendering:
    text: str
    spans: list  # (start, end, numbers): where the switches of these mutants stand in the text

    def mutants_at(self, line, column):
        """Returns the numbers of the mutants that most closely surround a place of the text; or else of its line."""
        lines = self.text.split("\n")
        begin = sum(len(l) + 1 for l in lines[:line - 1])
        place, end = begin + column - 1, begin + len(lines[line - 1])
        around = [s for s in self.spans if s[0] <= place < s[1]]
        if not around:
            around = [s for s in self.spans if s[0] < end and begin < s[1]]
        return min(around, key=lambda s: s[1] - s[0])[2] if around else []


def render(text, numbered, forced=None):
    """Returns a Rendering of `text` with the switches of `numbered`, a list of (number, mutant), and with the mutant
    `forced` in place of what it changes."""
    nodes = {}
    for number, mutant in numbered:
        for piece in mutant.pieces:
            node = nodes.setdefault((piece.start, piece.end), Node(piece.start, piece.end))
            node.pieces.append((number, piece))
    if forced:
        nodes[forced.start, forced.end] = Node(forced.start, forced.end, forced=forced.after)
    root = Node(0, len(text))
    path = [root]
    for node in sorted(nodes.values(), key=lambda n: (n.start, -n.end)):
        while node.start >= path[-1].end:
            path.pop()
        if node.end > path[-1].end:
            # Ranges of a syntax tree nest; a forced swap of two neighbours may cut across: it wins.
            continue
        path[-1].children.append(node)
        path.append(node)
    writer = Writer(text)
    writer.inside(root)
    return Rendering("".join(writer.parts), writer.spans)


class Writer:
    def __init__(self, text):
        self.source = text
        self.parts = []
        self.position = 0
        self.spans = []

    def put(self, text, number=None):
        begin = self.position
        self.parts.append(text)
        self.position += len(text)
        if number is not None:
            self.spans.append((begin, self.position, [number]))

    def inside(self, node):
        at = node.start
        for child in node.children:
            self.put(self.source[at:child.start])
            self.write(child)
            at = child.end
        self.put(self.source[at:node.end])

    def write(self, node):
        begin = self.position
        if node.forced is not None:
            self.put(node.forced)
            return
        ways = {piece.how for _, piece in node.pieces}
        if ways & {"leave out", "insert"}:
            self.statement(node)
        elif "lock" in ways:
            (number, piece), = node.pieces
            self.put(piece.text % f"QX_MUTANT({number})", number)
        elif "declared condition" in ways:
            (number, piece), = node.pieces
            self.inside(node)
            self.put(f"; QX_MUTANT({number}) ? !{piece.text} : static_cast<bool>({piece.text})", number)
        else:
            self.expression(node, is_condition="condition" in ways)
        self.spans.append((begin, self.position, [number for number, _ in node.pieces]))

    def expression(self, node, is_condition):
        self.put("(")
        for number, piece in node.pieces:
            self.put(f"QX_MUTANT({number}) ? ")
            self.put(f"static_cast<bool>({piece.text})" if is_condition else f"({piece.text})", number)
            self.put(" : ")
        self.put("static_cast<bool>(" if is_condition else "(")
        self.inside(node)
        self.put("))")

    def statement(self, node):
        for number, piece in node.pieces:
            if piece.how == "insert":
                self.put(f"if (QX_MUTANT({number})) {{ ")
                self.put(piece.text, number)
                self.put(" } ")
        guards = [number for number, piece in node.pieces if piece.how == "leave out"]
        if guards:
            self.put("if (!(" + " || ".join(f"QX_MUTANT({number})" for number in guards) + ")) { ")
        self.inside(node)
        if guards:
            self.put(" }")
