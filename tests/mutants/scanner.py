"""Small mistakes made by rule: what one token or one statement can be wrong in.

This is no parser. It knows comments, strings and nesting, and relies on how the
sources are laid out: an operator with two operands has spaces on both sides,
which brackets of templates, stars of pointers and references never have. What
it gets wrong does not compile, and is counted as that.
"""

import re
from dataclasses import dataclass

from mutant import Mutant

TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*)
      |(?P<string>(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)+')
      |(?P<number>\.?\d(?:[\w.']|[eEpP][+-])*)
      |(?P<name>[A-Za-z_]\w*)
      |(?P<mark><<=|>>=|\.\.\.|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|.)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

# What an operator between two operands is mistaken for.
OPERATORS = {
    "<": ("<=", ">"),
    "<=": ("<", ">"),
    ">": (">=", "<"),
    ">=": (">", "<"),
    "==": ("!=",),
    "!=": ("==",),
    "+": ("-",),
    "-": ("+",),
    "*": ("/",),
    "/": ("*",),
    "%": ("/",),
    "&&": ("||",),
    "||": ("&&",),
    "&": ("|",),
    "|": ("&",),
    "^": ("|",),
    "<<": (">>",),
    ">>": ("<<",),
    "+=": ("-=",),
    "-=": ("+=",),
    "*=": ("/=",),
    "/=": ("*=",),
    "|=": ("&=",),
    "&=": ("|=",),
    "^=": ("|=",),
}

# Words that begin what is no expression.
NOT_A_STATEMENT = frozenset(
    """alignas auto break case class const consteval constexpr continue default delete do else enum
    explicit extern for friend goto if inline namespace operator private protected public return
    static static_assert struct switch template throw try typedef union using virtual volatile
    while""".split()
)

# Objects that are there for what their constructor and destructor do.
GUARDS = frozenset(("ScopeLock", "BothLocks"))

# Only asks for memory early: nothing but time depends on it.
HINTS = frozenset(("__builtin_prefetch",))

CLOSING = {"(": ")", "[": "]", "{": "}"}


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int

    @property
    def end(self):
        return self.start + len(self.text)


class Source:
    """The tokens of one file, without what is not to be changed."""

    def __init__(self, file, text):
        self.file = file
        self.text = text
        tokens = [
            Token(found.lastgroup, found.group(), found.start())
            for found in TOKEN.finditer(text)
            if found.lastgroup != "skip"
        ]
        self.tokens = tokens
        self.partners = self.brackets()
        self.frozen = self.unchanging()
        self.headers_of_loops = {
            j
            for i, token in enumerate(tokens[:-1])
            if token.text == "for" and tokens[i + 1].text == "("
            for j in range(i + 1, self.partners[i + 1])
        }

    def brackets(self):
        """The closing bracket of each opening one."""
        partners, open_ = {}, []
        for i, token in enumerate(self.tokens):
            if token.kind != "mark":
                continue
            if token.text in CLOSING:
                open_.append(i)
            elif token.text in CLOSING.values():
                partners[open_.pop()] = i
        return partners

    def unchanging(self):
        """Tokens of what the compiler checks, not the program runs."""
        frozen = set()
        for i, token in enumerate(self.tokens):
            last = None
            if token.text == "static_assert":
                last = self.partners[i + 1]
            elif token.text == "enum":
                last = next(j for j in range(i, len(self.tokens)) if self.tokens[j].text == "{")
                last = self.partners[last]
            elif token.text in ("using", "typedef"):
                last = next(j for j in range(i, len(self.tokens)) if self.tokens[j].text == ";")
            elif token.text == "[" and self.tokens[i + 1].text == "[":
                last = self.partners[i]
            if last is not None:
                frozen.update(range(i, last + 1))
        return frozen

    def spaced(self, token):
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def line(self, at):
        begin = self.text.rfind("\n", 0, at) + 1
        end = self.text.find("\n", at)
        return " ".join(self.text[begin : len(self.text) if end < 0 else end].split())

    # ---- Changes: (start, old, new, kind, what) ---------------------------------

    def operators(self):
        for i, token in enumerate(self.tokens):
            if token.kind != "mark" or i in self.frozen:
                continue
            swap = []
            if token.text in OPERATORS and self.spaced(token):
                swap = OPERATORS[token.text]
            elif token.text in ("++", "--"):
                swap = ("--" if token.text == "++" else "++",)
            elif token.text in ("!", "~") and not self.text[token.end].isspace():
                # Not the name of a destructor.
                if token.text == "!" or not self.is_destructor(i):
                    swap = ("",)
            for new in swap:
                what = f"{token.text} becomes {new}" if new else f"{token.text} goes"
                yield token.start, token.text, new, "operator", what

    def is_destructor(self, i):
        before = self.tokens[i - 1].text
        return before in ("}", "{", ";", ":", "::")

    def constants(self):
        for i, token in enumerate(self.tokens):
            if i in self.frozen:
                continue
            if token.text in ("true", "false"):
                new = "false" if token.text == "true" else "true"
                yield token.start, token.text, new, "constant", f"{token.text} becomes {new}"
            found = re.fullmatch(r"(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)", token.text)
            if token.kind != "number" or found is None:
                continue
            digits, suffix = found.groups()
            value = int(digits, 0)
            for other in sorted({value + 1, value - 1, 0} - {value, -1}):
                new = (hex(other) if digits[:2] in ("0x", "0X") else str(other)) + suffix
                yield token.start, token.text, new, "constant", f"{token.text} becomes {new}"

    def conditions(self):
        for i, token in enumerate(self.tokens):
            if i in self.frozen:
                continue
            if token.text in ("if", "while") and self.tokens[i + 1].text == "(":
                yield from self.negated(i + 2, self.partners[i + 1])
            elif token.text == "for" and self.tokens[i + 1].text == "(":
                end = self.partners[i + 1]
                parts = [j for j in range(i + 2, end) if self.tokens[j].text == ";"]
                if len(parts) == 2 and parts[1] > parts[0] + 1:
                    yield from self.negated(parts[0] + 1, parts[1])
            elif token.text == "?":
                yield token.start, "?", "== 0 ?", "condition", "the condition before ? is negated"

    def negated(self, first, after):
        """The condition of the tokens from `first` to before `after`."""
        texts = [token.text for token in self.tokens[first:after]]
        alone = "&&" not in texts and "||" not in texts
        # Where there is but one operator, it being changed is the same.
        if self.declares(first) or alone and (texts[0] == "!" or {"==", "!="} & set(texts)):
            return
        start, end = self.tokens[first].start, self.tokens[after - 1].end
        old = self.text[start:end]
        yield start, old, f"!({old})", "condition", "the condition is negated"

    def declares(self, i):
        """Whether a declaration begins at token `i`: a type, then a name."""
        tokens = self.tokens
        if tokens[i].kind != "name" or tokens[i].text in NOT_A_STATEMENT:
            return tokens[i].text in NOT_A_STATEMENT
        while tokens[i + 1].text == "::" and tokens[i + 2].kind == "name":
            i += 2
        i += 1
        if tokens[i].text == "<" and not self.spaced(tokens[i]):
            depth = 0
            while True:
                depth += {"<": 1, ">": -1, ">>": -2}.get(tokens[i].text, 0)
                i += 1
                if depth <= 0:
                    break
        while tokens[i].text in ("*", "&", "const"):
            i += 1
        return tokens[i].kind == "name"

    def begins(self):
        """The tokens that statements begin at."""
        conditions = {
            self.partners[i + 1]
            for i, token in enumerate(self.tokens[:-1])
            if token.text in ("if", "while", "for", "switch") and self.tokens[i + 1].text == "("
        }
        for i in range(1, len(self.tokens)):
            before = self.tokens[i - 1].text
            if i in self.headers_of_loops:
                continue
            if before in (";", "{", "}", "else") or i - 1 in conditions:
                yield i
            elif before == ":" and self.tokens[i - 2].text == "default":
                yield i
            elif before == ":" and self.tokens[i - 3].text == "case":
                yield i

    def statement_end(self, i):
        """The semicolon of the statement that begins at token `i`, or None."""
        while i < len(self.tokens):
            text = self.tokens[i].text
            if text == ";":
                return i
            if text in ("{", "}", ")"):
                return None
            i = self.partners[i] + 1 if text in CLOSING else i + 1
        return None

    def statements(self):
        for i in self.begins():
            token = self.tokens[i]
            if i in self.frozen or token.text in HINTS:
                continue
            jumps = token.text in ("break", "continue") or (
                token.text == "return" and self.tokens[i + 1].text == ";"
            )
            guards = token.text in GUARDS and self.tokens[i + 1].kind == "name"
            if token.text == ";" or not (jumps or guards) and self.declares(i):
                continue
            end = self.statement_end(i)
            if end is None:
                continue
            old = self.text[token.start : self.tokens[end].end]
            yield token.start, old, ";", "statement", "the statement goes"

    def answers(self):
        for i, token in enumerate(self.tokens):
            if token.text != "return" or self.tokens[i + 1].text == ";" or i in self.frozen:
                continue
            end = next(j for j in range(i, len(self.tokens)) if self.is_end_of_return(i, j))
            old = self.text[token.start : self.tokens[end].end]
            if old not in ("return nullptr;", "return 0;", "return false;", "return true;"):
                yield token.start, old, "return {};", "answer", "answers nothing"

    def is_end_of_return(self, i, j):
        """Whether token `j` is the semicolon of the return at `i`, not one of a function in it."""
        if self.tokens[j].text != ";":
            return False
        return not any(i < k < j < self.partners[k] for k in range(i, j) if k in self.partners)

    def mutants(self):
        """All of them, in the order of the file; each has a name of its own."""
        changes = [
            *self.operators(),
            *self.constants(),
            *self.conditions(),
            *self.statements(),
            *self.answers(),
        ]
        counts = {}
        for start, old, new, kind, what in sorted(changes):
            name = f"{self.line(start)} | {what}"
            counts[name] = counts.get(name, 0) + 1
            if counts[name] > 1:
                name += f" #{counts[name]}"
            yield Mutant(self.file, start, old, new, kind, name)


def generate(root, files):
    """All generated mutants of some files."""
    return [
        mutant
        for file in files
        for mutant in Source(file, (root / file).read_text(encoding="utf-8")).mutants()
    ]
