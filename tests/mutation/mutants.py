"""The mutants of a C++ source: each is one small change to its code, never to comments, includes or attributes.

A tokenizer of our own is enough because the tree is formatted by clang-format: an operator between two operands has
a blank on both sides, a bracket of a template has not.

    negate    a condition of if, while, for and ?:, and a returned comparison
    relation  == and !=, < and <=, > and >=, && and || for one another
    drop      a call, an assignment, a guard, an output, a throw, a break
    number    one more and one less; the next character; true and false
    name      one enumerator, standard descriptor, error number or flag for the next of its kind
    sign      + and -, += and -=, ++ and --, * and /, & and | for one another
    text      a string without its last character, an empty one with a character"""

import dataclasses
import re

TOKEN = re.compile(
    r"""(?P<space>\s+)
    |(?P<comment>//[^\n]*|/\*.*?\*/)
    |(?P<directive>^\#(?:[^\n\\]|\\.)*)
    |(?P<attribute>\[\[.*?\]\])
    |(?P<raw>R"(?P<end>\w*)\(.*?\)(?P=end)")
    |(?P<text>"(?:[^"\\]|\\.)*")
    |(?P<char>'(?:[^'\\]|\\.)*')
    |(?P<number>\d[\w.']*)
    |(?P<word>[A-Za-z_]\w*)
    |(?P<mark>::|->|<<=|>>=|<<|>>|[-+*/%&|^=!<>]=|&&|\|\||\+\+|--|\.\.\.|.)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE)

PAIRS = {"(": ")", "[": "]", "{": "}"}
RELATION = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&"}
SIGN = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "+=": "-=", "-=": "+=", "|=": "&="}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "|=", "&="}
# Where the condition of a ?: can begin, looking back from the question mark.
BEFORE_CONDITION = {"=", "+=", ",", ";", ":", "?", "return", "(", "[", "{", "}"}
NOT_A_STATEMENT = {
    "return", "if", "else", "for", "while", "do", "switch", "case", "default", "try", "catch", "using", "typedef",
    "static", "constexpr", "const", "auto", "class", "struct", "enum", "namespace", "template", "public", "private",
    "protected", "virtual", "explicit", "friend", "static_assert", "operator", "new", "delete"}
KINDS = [
    ["STDIN_FILENO", "STDOUT_FILENO", "STDERR_FILENO"],
    ["EINTR", "EAGAIN", "EWOULDBLOCK", "EPIPE", "ECHILD", "ENOENT", "EPERM"],
    ["SIG_IGN", "SIG_DFL"],
    ["SIGPIPE", "SIGCHLD", "SIGXFSZ", "SIGTERM"],
    ["O_CLOEXEC", "O_NOCTTY", "O_NONBLOCK", "O_APPEND", "O_CREAT", "O_TRUNC"],
    ["O_RDONLY", "O_WRONLY", "O_RDWR"],
    ["LOG_ERR", "LOG_WARNING", "LOG_INFO", "LOG_DEBUG"],
    ["POLLIN", "POLLHUP", "POLLERR"],
    ["WNOHANG", "WUNTRACED"],
    ["F_GETFL", "F_GETFD"],
]
NEXT_NAME = {name: kind[(i + 1) % len(kind)] for kind in KINDS for i, name in enumerate(kind)}


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    spaced: bool


@dataclasses.dataclass(frozen=True, order=True)
class Mutant:
    file: str
    start: int
    end: int
    operator: str
    replacement: str
    line: str = dataclasses.field(compare=False)
    becomes: str = dataclasses.field(compare=False)
    number: int = dataclasses.field(compare=False)

    def apply(self, source):
        return source[:self.start] + self.replacement + source[self.end:]


def tokens_of(source):
    found = []
    for match in TOKEN.finditer(source):
        if match.lastgroup in ("space", "comment", "directive", "attribute"):
            continue
        kind = "raw" if match.group("raw") else match.lastgroup
        spaced = source[match.start() - 1:match.start()].isspace() and source[match.end():match.end() + 1].isspace()
        found.append(Token(kind, match.group(), match.start(), match.end(), spaced))
    return found


def enumerators(sources):
    """For each enumeration the successor of each of its enumerators."""
    successors = {}
    for source in sources:
        for name, body in re.findall(r"enum class (\w+)[^{;]*\{(.*?)\}", source, re.DOTALL):
            names = re.findall(r"^\s*(\w+)", re.sub(r"//[^\n]*", "", body).replace(",", "\n"), re.MULTILINE)
            successors[name] = dict(zip(names, names[1:] + names[:1]))
    return successors


class Source:
    """One source with its brackets matched; each method yields (operator, start, end, replacement)."""

    def __init__(self, text, successors):
        self.text = text
        self.successors = successors
        self.tokens = tokens_of(text)
        self.partner = {}
        self.inner = [None] * len(self.tokens)  # the bracket that a token lies in
        stack = []
        for i, token in enumerate(self.tokens):
            if token.kind == "mark" and token.text in PAIRS.values():
                opened = stack.pop()
                self.partner[i], self.partner[opened] = opened, i
            self.inner[i] = stack[-1] if stack else None
            if token.kind == "mark" and token.text in PAIRS:
                stack.append(i)

    def is_mark(self, i, text):
        return 0 <= i < len(self.tokens) and self.tokens[i].kind == "mark" and self.tokens[i].text == text

    def is_word(self, i, text):
        return 0 <= i < len(self.tokens) and self.tokens[i].kind == "word" and self.tokens[i].text == text

    def top(self, first, last):
        """The tokens from first to before last that lie in no bracket of their own."""
        i = first
        while i < last:
            yield i
            i = self.partner[i] + 1 if self.tokens[i].text in PAIRS and self.tokens[i].kind == "mark" else i + 1

    def end_of_statement(self, first):
        """The semicolon that ends what begins at first, None when a block comes before it."""
        for i in self.top(first, len(self.tokens)):
            if self.is_mark(i, ";"):
                return i
            if self.tokens[i].kind == "mark" and self.tokens[i].text in ("{", "}", ")", "]"):
                return None
        return None

    def negated(self, first, last):
        """first and last: tokens around the condition."""
        marks = [self.tokens[i].text for i in self.top(first, last) if self.tokens[i].kind == "mark"]
        if first < last and "=" not in marks:
            start, end = self.tokens[first].start, self.tokens[last - 1].end
            yield "negate", start, end, f"!({self.text[start:end]})"

    def conditions(self):
        for i, token in enumerate(self.tokens):
            if token.kind == "word" and token.text in ("if", "while", "for") and self.is_mark(i + 1, "("):
                yield from self.condition_in(i + 1, token.text == "for")
            elif self.is_word(i, "return"):
                yield from self.returned(i + 1)
            elif self.is_mark(i, "?"):
                yield from self.negated(self.condition_before(i), i)

    def condition_in(self, opened, is_for):
        closed = self.partner[opened]
        breaks = [i for i in self.top(opened + 1, closed) if self.is_mark(i, ";")]
        if not is_for:
            yield from self.negated(breaks[-1] + 1 if breaks else opened + 1, closed)
        elif len(breaks) == 2:
            yield from self.negated(breaks[0] + 1, breaks[1])

    def returned(self, first):
        last = self.end_of_statement(first)
        if last is None:
            return
        marks = [self.tokens[i] for i in self.top(first, last) if self.tokens[i].kind == "mark"]
        if any(m.text == "!" or (m.spaced and m.text in RELATION) for m in marks) and not any(
                m.text == "?" for m in marks):
            yield from self.negated(first, last)

    def condition_before(self, question):
        i = question
        while self.tokens[i - 1].text not in BEFORE_CONDITION:
            i = self.partner[i - 1] if self.tokens[i - 1].text in (")", "]") else i - 1
        return i

    def operators(self):
        for token in self.tokens:
            if token.kind != "mark":
                continue
            for name, table in (("relation", RELATION), ("sign", SIGN)):
                if token.spaced and token.text in table:
                    yield name, token.start, token.end, table[token.text]
            if token.text in ("++", "--"):
                yield "sign", token.start, token.end, "--" if token.text == "++" else "++"

    def constants(self):
        for i, token in enumerate(self.tokens):
            if token.kind == "number":
                for value in numbers_near(token.text):
                    yield "number", token.start, token.end, value
            elif token.kind == "char":
                yield "number", token.start, token.end, next_character(token.text)
            elif token.text in ("true", "false"):
                yield "number", token.start, token.end, "false" if token.text == "true" else "true"
            elif token.kind == "text" and not self.is_word(i - 1, "extern"):
                yield "text", token.start, token.end, shorter(token.text)
            elif token.text in NEXT_NAME:
                yield "name", token.start, token.end, NEXT_NAME[token.text]
            elif self.is_mark(i - 1, "::") and token.text in self.successors.get(self.tokens[i - 2].text, ()):
                yield "name", token.start, token.end, self.successors[self.tokens[i - 2].text][token.text]

    def in_body(self, i):
        """Whether the token lies in a function's body rather than in that of a class, an enumeration, a namespace."""
        opened = self.inner[i]
        if opened is None or not self.is_mark(opened, "{"):
            return False
        before = opened - 1
        while before >= 0 and not (self.tokens[before].kind == "mark" and self.tokens[before].text in ";{}"):
            if self.tokens[before].text in ("class", "struct", "enum", "namespace", "union"):
                return False
            before = self.partner[before] - 1 if self.tokens[before].text in (")", "]") else before - 1
        return True

    def statements(self):
        for i in range(1, len(self.tokens)):
            if self.tokens[i - 1].text not in (";", "{", "}", ":") or not self.in_body(i):
                continue
            last = self.end_of_statement(i)
            if last is not None and (self.can_go(i, last) or self.is_guard(i, last)):
                yield "drop", self.tokens[i].start, self.tokens[last].end, ";"

    def can_go(self, first, last):
        if self.tokens[first].text in ("throw", "break", "continue") or (
                self.is_word(first, "return") and last == first + 1):
            return True
        if self.tokens[first].text in NOT_A_STATEMENT:
            return False
        i = first
        if self.is_mark(i, "(") and self.is_word(i + 1, "void"):
            i += 3
        steps = called = False
        while self.tokens[i].text in ("*", "++", "--", "::"):
            steps = steps or self.tokens[i].text in ("++", "--")
            i += 1
        while i < last:
            token = self.tokens[i]
            if token.kind == "mark" and (token.text in ASSIGNMENTS or (token.text == "<<" and token.spaced)):
                return True
            if token.text in ("(", "["):
                called = token.text == "("
                i = self.partner[i]
            elif token.text in ("++", "--"):
                steps = True
            elif token.kind == "word" and self.tokens[i + 1].kind == "word":
                return False
            elif token.text not in ("::", ".", "->") and token.kind != "word":
                return False
            i += 1
        return called or steps

    def is_guard(self, first, last):
        """const TYPE NAME(...); whose name is not used afterwards."""
        if not (self.is_word(first, "const") and self.tokens[first + 1].kind == "word"
                and self.tokens[first + 2].kind == "word" and self.is_mark(first + 3, "(")):
            return False
        closed = self.partner[self.inner[first]]
        return not any(self.tokens[i].text == self.tokens[first + 2].text for i in range(last, closed))

    def all(self):
        yield from self.conditions()
        yield from self.operators()
        yield from self.statements()
        yield from self.constants()


def numbers_near(text):
    match = re.fullmatch(r"(0x[0-9a-fA-F]+|[0-9']+)([uUlL]*)", text)
    if match is None:
        return
    digits = match.group(1).replace("'", "")
    octal = len(digits) > 1 and digits.isdigit() and digits[0] == "0"
    value = int(digits, 8 if octal else 0)
    yield f"{value + 1}{match.group(2)}"
    if value > 0:
        yield f"{value - 1}{match.group(2)}"


def next_character(text):
    inside = text[1:-1]
    if inside == "\\0":
        return "'\\1'"
    if len(inside) > 1:
        return "'x'"
    following = chr(ord(inside) + 1)
    return "'_'" if following in "'\\" else f"'{following}'"


def shorter(text):
    units = re.findall(r"\\x[0-9a-fA-F]+|\\[0-7]{1,3}|\\.|[^\\]", text[1:-1], re.DOTALL)
    return '"' + "".join(units[:-1]) + '"' if units else '"x"'


def words(text):
    return " ".join(text.split())


def mutants_of(file, text, successors):
    found = []
    for operator, start, end, replacement in Source(text, successors).all():
        head = text.rfind("\n", 0, start) + 1
        tail = text.find("\n", end)
        line = words(text[head:tail])
        becomes = words(text[head:start] + replacement + text[end:tail])
        found.append(Mutant(file, start, end, operator, replacement, line, becomes, text.count("\n", 0, start) + 1))
    return sorted(set(found))
