"""The worked examples of docs/vpca.md, read out of the document, so that it and what implements it stay in step."""

import pathlib
import re

_DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs/vpca.md"
MAGIC = b"\xCD\xCA"


def _blocks(heading):
    """The code blocks under a heading, each as its lines."""
    section = re.split(r"^#+ ", _DOCUMENT.read_text().split(f"# {heading}\n", 1)[1], flags=re.M)[0]
    return [block.splitlines() for block in re.findall(r"^```\n(.*?)^```$", section, flags=re.M | re.S)]


def _octets(line):
    """The hex pairs that a line begins with; what stands behind them explains."""
    return bytes.fromhex(re.match(r"(?:\s*\b[0-9A-F]{2}\b(?=\s|$))*", line).group())


def frames(heading):
    """The frames under a heading, one per code block."""
    found = [b"".join(map(_octets, block)) for block in _blocks(heading)]
    return [frame for frame in found if frame.startswith(MAGIC)]


def attribute_lists():
    """The example lists: a line that is not indented begins the next one."""
    lists = []
    for block in _blocks("Values"):
        for line in block:
            if line.startswith(" "):
                lists[-1] += _octets(line)
            else:
                lists.append(_octets(line))
    return lists


BLOCK_REQUEST, BLOCK_REPLY, BLOCK_REFUSAL = frames("0x31: read a data block")
ATTRIBUTE_REQUEST, FULL_ATTRIBUTE_REQUEST, ATTRIBUTE_REPLY = frames("0x66: read attributes")
