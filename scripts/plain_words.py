# SPDX-License-Identifier: Apache-2.0
"""What comments and documents say in plain words: phrases that send a reader back.

A phrase is a pattern and what to say instead. A pattern is as narrow as it takes to let the
correct uses of its words pass.
"""

import re

BEGIN = r"(?:^|(?<=[.:;] ))"  # of a sentence, or of what a colon announces
SUBJECT = r"[^.?:;,]*?(?<!that )(?<!which )(?<!who )"
VERB = r"\b(?:is|are|was|were|can|cannot|may|must|has|goes|stays|belongs|counts|passes)\b"

PHRASES = [
    (
        r"(?<!here )\b(?:is|are|was|were) no "
        r"(?!longer\b|more\b|less\b|fewer\b|such\b|different\b|other\b|(?:long|short|great|larg|small|high|low|bett)er\b)",
        'say "is not a ..."',
    ),
    (r"(?<!here )\b(?:is|are|was|were) none\b(?! of (?:them|these|those)\b)", 'say "is not one", or what it is instead'),
    (r"\b(?:null|this|that|it) is nothing to do\b|\bnull is nothing\b", 'say "does nothing if it is null"'),
    (r"\btold to the (?:journal|log)\b|\b(?:journal|log) is told\b", 'say "logged"'),
    (r"\b(?:stands?|stood)\b(?! (?:for|in for|alone|still)\b|-)", 'say "is"'),
    (r"\blies?\b(?! on\b)|\blay in\b", 'say "is"'),
    (r"\bat will\b", 'say "optional"'),
    (r"\bin any case\b", 'say "regardless of case", or "always"'),
    (r"\ball the same(?=[.,;:]|$)(?<!are all the same)", 'say "anyway", or "still"'),
    (r"\bfor ever\b", 'say "forever", or what ends it'),
    (r"\bbegin of\b|\b[Tt]he begin\b(?! marker)", 'say "the beginning"'),
    (r"\b[Tt]he same, of\b|" + BEGIN + r"Of the same\b", "say what it is"),
    (r"\bas of (?:the|which|an?)\b", 'name the day, or say "at"'),
    (
        BEGIN + r"What (?:else )?(?:is|are|was|were|has|have|can|cannot|may|must|does|comes|follows|stays) "
        r"[^.?:;,]*?\w" + SUBJECT + VERB,
        "begin with the thing, not with a clause",
    ),
    (
        BEGIN + r"Who(?:ever)? (?!an? |the |their |this |is |it |they )\w+ " + SUBJECT + r"(?:" + VERB + r"|\b(?:makes|asks|decides|alters|links)\b)",
        "begin with the person, not with a clause",
    ),
    (BEGIN + r"That (?:the|an?|no|each|its?|they|nobody|nothing) ", "begin with the thing, not with a clause"),
]
COMPILED = [(re.compile(pattern), advice) for pattern, advice in PHRASES]


def comments_of_c(lines):
    """(line number, text) of each line of comment; an empty text where a comment ends."""
    inside = False
    for number, line in enumerate(lines, 1):
        if inside:
            text, end, _ = line.partition("*/")
            inside = not end
            yield number, text.strip().lstrip("* ")
            continue
        found = re.search(r"(?:^|\s)(//[/!]?<?|/\*[*!]?<?)(.*)", line)
        if not found or line.count('"', 0, found.start()) % 2:
            yield number, ""
            continue
        alone = not line[: found.start()].strip()
        text, end, _ = found[2].partition("*/")
        if not alone:
            yield number, ""
        inside = found[1].startswith("/*") and not end
        yield number, text.strip()


def comments_of_scripts(lines):
    """The comments of a script, and the documentation strings of Python."""
    quoted = None
    for number, line in enumerate(lines, 1):
        text = line.strip()
        if quoted or text.startswith(('"""', "'''")):
            opening = not quoted
            quoted = quoted or text[:3]
            said = text[3:] if opening else text
            if quoted in said:
                quoted = None
            yield number, said.rstrip("\"'")
        elif text.startswith("# "):
            yield number, text[2:]
        else:
            yield number, ""


def prose_of_markdown(lines):
    """The text of a document, without its headings, its code and what it quotes as code."""
    code = False
    for number, line in enumerate(lines, 1):
        if line.startswith("```"):
            code = not code
        if code or not line.strip() or line.startswith(("#", "```", "    ")):
            yield number, ""
            continue
        line = re.sub(r"`[^`]*`", "CODE", line)
        if line.startswith("|"):
            for cell in line.strip("|").split(" | "):
                yield number, cell.strip()
                yield number, ""
            continue
        item = re.match(r"\s*(?:[-*]|\d+\.) ", line)
        if item:
            yield number, ""
        yield number, line[item.end() if item else 0 :].strip()


def messages(lines):
    """The texts between quotation marks, each by itself."""
    for number, line in enumerate(lines, 1):
        for text in re.findall(r'"((?:[^"\\]|\\.)*)"', line):
            yield number, text
            yield number, ""


def blocks(prose):
    """Lines that belong together: their numbers, where each begins in the joined text, the text."""
    numbers, starts, text = [], [], ""
    for number, line in [*prose, (0, "")]:
        if line:
            numbers.append(number)
            starts.append(len(text))
            text += line + " "
        elif text:
            yield numbers, starts, text.rstrip()
            numbers, starts, text = [], [], ""


def hard_to_read(prose):
    """(line number, message) of each phrase that is found in `prose`."""
    for numbers, starts, text in blocks(prose):
        for pattern, advice in COMPILED:
            for found in pattern.finditer(text):
                if "?" in text[found.end() :].partition(".")[0]:
                    continue
                line = sum(start <= found.start() for start in starts) - 1
                yield numbers[line], f"'{found[0].strip()}': {advice}"
