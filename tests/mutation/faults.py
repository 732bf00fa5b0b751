# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The faults that fit a source text, and the text with faults in it."""

import re
from collections import namedtuple

Fault = namedtuple("Fault", "line column operator old new")

# What is no code: comments, literals, lines of the preprocessor, what is asserted while compiling.
NO_CODE = re.compile(r'(?P<comment>//[^\n]*|/\*.*?\*/)|(?P<raw>R"(\w*)\(.*?\)\3")|(?P<text>"(?:\\.|[^"\\\n])*")'
                     r"|'(?:\\.|[^'\\\n])+'|^[ \t]*#[^\n]*|\bstatic_assert\([^;]*", re.S | re.M)
SWAPS = [
    ("comparison", re.compile(r"(?<= )(==|!=|<=|>=|<|>)(?= )"),
     {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}),
    ("boolean", re.compile(r"(?<= )(&&|\|\|)(?= )|\b(true|false)\b"),
     {"&&": "||", "||": "&&", "true": "false", "false": "true"}),
]
NUMBER = re.compile(r"(?<![\w.'])\d+(?=(?:ms|min|[hsuUlL])?\b)(?![.'])")
CONDITION = re.compile(r"\b(?:if|while) \(")
# "false" and the like are "{}" already, and "true" becomes "false" as a boolean.
RETURN = re.compile(r"\breturn (?!\{\}|true;|false;|nullptr;|std::nullopt;|0;|Q[A-Z]\w+\(\);)([^;]+)(?=;)")
STATEMENT = re.compile(r"(?:\s*)(?!\.)(?:(?:emit |\+\+|--)?[\w.:]+(?:->[\w.:]+)*"
                       r"(?:\(.*\)(?: << .*)?|(?:\[[^]]*\])? [-+|&]?= .*|\+\+|--)?);$")
# What a line ends with when the next one begins a statement: the rest of a longer one cannot go by itself.
BEFORE_STATEMENT = re.compile(r"(?:[;:{})]|\belse|\bdo|^)\s*$")


def blank(text, kind=0):
    """The text with what is no code, or only one kind of that, blanked out, each character at its place."""
    return NO_CODE.sub(lambda found: re.sub(r"[^\n]", " ", found[0]) if found[kind] else found[0], text)


def closing(code, opening):
    """Where the bracket is closed that is opened at a place of a line; -1 when on no line of its own."""
    depth = 0
    for place in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    return -1


def faults_of_line(code, line, before):
    """(column, operator, old, new) of each fault that fits a line; code is the line without what is no code, before
    is the code in front of it."""
    for operator, pattern, swaps in SWAPS:
        for found in pattern.finditer(code):
            yield found.start(), operator, found[0], swaps[found[0]]
    for found in NUMBER.finditer(code):
        yield found.start(), "number", found[0], str(int(found[0]) + 1)
    for found in CONDITION.finditer(code):
        end = closing(code, found.end() - 1)
        condition = line[found.end():end]
        # A declaration cannot be negated.
        if end > 0 and not re.search(r"[\w*&] [*&]?\w+ = |;", condition):
            yield found.end(), "condition", condition, f"!({condition})"
    for found in RETURN.finditer(code):
        yield found.start(1), "return", line[found.start(1):found.end(1)], "{}"
    indent = len(code) - len(code.lstrip())
    if STATEMENT.match(code) and code.count("(") == code.count(")") and indent and BEFORE_STATEMENT.search(before):
        yield indent, "statement", line[indent:], "{}"


def faults_of(text):
    """Every fault of a source text, in the order of its lines."""
    code = blank(text)
    faults = []
    before = ""
    for number, (code_line, line) in enumerate(zip(code.split("\n"), text.split("\n")), 1):
        faults += [Fault(number, *fault) for fault in faults_of_line(code_line, line, before)]
        before = code_line if code_line.strip() else before
    for found in NO_CODE.finditer(text):
        # A longer array changes nothing, and behind a switch its size would be that of a pointer.
        if found["text"] is not None and not text[:found.start()].rstrip().endswith("sizeof"):
            start = text.rfind("\n", 0, found.start()) + 1
            faults.append(Fault(text.count("\n", 0, start) + 1, found.start() - start, "text", found[0],
                                found[0][:-1] + '~"'))
    return sorted(faults)


def with_fault(text, fault):
    lines = text.split("\n")
    line = lines[fault.line - 1]
    assert line[fault.column:].startswith(fault.old)
    lines[fault.line - 1] = line[:fault.column] + fault.new + line[fault.column + len(fault.old):]
    return "\n".join(lines)


# A text belongs to what makes it one of Qt's, a number to its unit.
WRAPPED = re.compile(r"\b(?:QStringLiteral|QByteArrayLiteral|QLatin1String|QLatin1Char)\($")
UNIT = re.compile(r"(?:ms|min|[hsuUlL])?")
WHOLE_STATEMENT = re.compile(r"\s*(?:return .*|[\w.:>-]+(?: [-+|&]?= .*|\(.*\)));\s*$")
DECLARATION = re.compile(r"(?:\s*|.*\w )(?:const |static )*[\w:<>*&, ]+ [*&]?\w+ = (?=.*;\s*$)")


def with_switch(text, fault, number):
    """The text with a fault that isFaulty() of fault.h turns on; None when no line of it can hold both."""
    lines = text.split("\n")
    line, code, bare = (whole.split("\n")[fault.line - 1] for whole in (text, blank(text), blank(text, "comment")))
    faulty = with_fault(text, fault).split("\n")[fault.line - 1]
    length = len(bare.rstrip())
    switched = switched_line(code[:length], line[:length], faulty[:len(faulty) - len(line) + length], fault,
                             f"isFaulty({number})")
    if switched is None or fault.operator == "text" and is_part_of_text(text, fault):
        return None
    lines[fault.line - 1] = switched + line[length:]
    return "\n".join(lines)


def is_part_of_text(text, fault):
    """Whether another literal stands beside this one: the compiler takes them for one."""
    start = sum(len(line) + 1 for line in text.split("\n")[:fault.line - 1]) + fault.column
    return text[:start].rstrip().endswith('"') or text[start + len(fault.old):].lstrip().startswith('"')


def switched_line(code, line, faulty, fault, switch):
    start, end, new = fault.column, fault.column + len(fault.old), fault.new
    if fault.operator == "condition":
        return f"{line[:start]}{switch} != static_cast<bool>({fault.old}){line[end:]}"
    if fault.operator == "statement":
        return f"{line[:start]}{{ if (!{switch}) {{ {fault.old} }} }}"
    if fault.operator in ("text", "number") or fault.old in ("true", "false"):
        return switched_literal(line, start, end, new, switch)
    for found in CONDITION.finditer(code):
        end = closing(code, found.end() - 1)
        if found.end() <= start < end and not re.search(r"[\w*&] [*&]?\w+ = |;", code[found.end():end]):
            conditions = [f"static_cast<bool>({text[found.end():closing(blank(text), found.end() - 1)]})"
                          for text in (faulty, line)]
            return f"{line[:found.end()]}{switch} ? {conditions[0]} : {conditions[1]}{line[end:]}"
    balanced = code.count("(") == code.count(")") and code.count("{") == code.count("}")
    if balanced and WHOLE_STATEMENT.match(code):
        return f"{{ if ({switch}) {{ {faulty.strip()} }} else {{ {line.strip()} }} }}"
    found = DECLARATION.match(code)
    if balanced and found and found.end() <= start:
        return f"{line[:found.end()]}{switch} ? ({faulty[found.end():-1]}) : ({line[found.end():-1]});"
    return None


def switched_literal(line, start, end, new, switch):
    found = WRAPPED.search(line[:start])
    if found and line[end:end + 1] == ")":
        new = f"{found[0]}{new})"
        start, end = found.start(), end + 1
    else:
        unit = UNIT.match(line[end:])[0] if line[start].isdigit() else ""
        new, end = new + unit, end + len(unit)
    # A constant gets its value when the program starts.
    return f"{line[:start].replace('constexpr ', 'const ')}({switch} ? {new} : {line[start:end]}){line[end:]}"
