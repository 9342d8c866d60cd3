"""Part of ./dev lint: no extension of one compiler, and nothing of one platform's library, stands unguarded in what has to
build with another. check_extensions.py FILE…

The compilers refuse most extensions by themselves (-Wpedantic). This finds what they accept all the same: their own
keywords, attributes, built-ins and pragmas, and headers and functions that only one C library has. Such a thing belongs
behind an #if that asks for the compiler. Exit status 1 with a line for each finding.
"""

import pathlib
import re
import sys

# A condition on one of these is a guard.
GUARD = re.compile(r"\b(__GNUC__|__clang__|__GLIBCXX__|__MINGW32__|_MSC_VER)\b")

EXTENSIONS = re.compile("|".join((
    r"\b__(?:attribute|typeof|alignof|inline|volatile|const|signed|asm|real|imag|label)(?:__)?\b",
    r"\b(?:__restrict__|__extension__|__thread|__auto_type|__null|__u?int128(?:_t)?|__PRETTY_FUNCTION__|typeof|asm)\b",
    # Those that gcc, clang and Visual C++ share are allowed.
    r"\b__builtin_(?!(?:LINE|FILE|FUNCTION|COLUMN)\b)\w+",
    r"\b__(?:sync|atomic)_\w+",
    r"\b__(?:declspec|forceinline|int64|try|except|finally|leave|super|if_exists|assume|debugbreak|event|raise)\b",
    r"\[\[\s*(?:using\s+)?(?:gnu|clang|msvc)\b",
    r"##\s*__VA_ARGS__",
    r"^\s*#\s*(?:include_next|import|ident|warning)\b",
    r"^\s*#\s*pragma\s+(?!once\b|pack\b)\w+",
    r"\b_Pragma\b",
    r"^\s*#\s*include\s*<(?:(?:unistd|strings|dirent|getopt|pthread|sched|dlfcn|poll|alloca|err|fnmatch|glob|libgen|"
    r"cxxabi|execinfo|x86intrin)\.h|cxxabi|(?:sys|arpa|netinet|net|bits|ext|tr1|backward)/[^>]*|_mingw[^>]*)>",
    r"\b(?:ssize_t|strn?casecmp|wcsn?casecmp|strsep|strchrnul|alloca|v?asprintf|usleep|getline\s*\(\s*&|__gnu_cxx|"
    r"__mingw_\w+|_GLIBCXX\w+|__cxa_\w+)\b",
)))

# Comments, and what is inside literals.
SILENT = re.compile(r"""//[^\n]*|/\*.*?\*/|R"(?P<mark>[^\s()\\]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])'""",
                    re.DOTALL)


def code_lines(text):
    """The lines of a file without comments and literals; a line that goes on is one, and keeps the first one's number."""
    text = SILENT.sub(lambda found: '""' + "\n" * found.group().count("\n"), text)
    number = 1
    for line in re.split(r"(?<!\\)\n", text):
        yield number, line.replace("\\\n", " ")
        number += line.count("\n") + 1


def findings(text):
    """(line, what stands there) for each extension outside of a guard."""
    guards = []  # of each open #if, whether a branch so far has asked for a compiler
    for number, line in code_lines(text):
        directive = re.match(r"\s*#\s*(if|ifdef|ifndef|elif|endif)\b", line)
        if directive and directive.group(1) == "endif":
            guards = guards[:-1]
        elif directive and directive.group(1) == "elif" and guards:
            guards[-1] = guards[-1] or bool(GUARD.search(line))
        elif directive:
            guards.append(bool(GUARD.search(line)))
        if not any(guards):
            yield from ((number, found.group().strip()) for found in EXTENSIONS.finditer(line))


def main():
    status = 0
    for name in sys.argv[1:]:
        for number, what in findings(pathlib.Path(name).read_text(encoding="utf-8")):
            print(f"{name}:{number}: {what} is not every compiler's: guard it (#if defined(__GNUC__), _MSC_VER, …)")
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
