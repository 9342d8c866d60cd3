"""What the look for compilers' extensions finds, and what it leaves alone."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools"))
import check_extensions  # noqa: E402


def lines_of(text):
    return [number for number, _ in check_extensions.findings(text)]


class CheckExtensions(unittest.TestCase):
    def test_finds_what_the_compilers_let_pass(self):
        for line in ("__attribute__((cold)) void F();", "[[gnu::noinline]] void F();", "[[using gnu: cold]] void F();",
                     "__declspec(noinline) void F();", "int F(int x) { return __builtin_popcount(x); }", "__thread int x;",
                     "__typeof__(1) x;", "int x = __alignof__(int);", "int* __restrict__ p;", 'asm("nop");',
                     "auto name = __PRETTY_FUNCTION__;", "__try { F(); }", "unsigned __int128 x;", "# pragma GCC poison x",
                     "#pragma warning(disable : 1)", "#include_next <stdio.h>", "#include <unistd.h>", "#include <sys/mman.h>",
                     "#include <bits/stl_vector.h>", "#define F(x, ...) G(x, ##__VA_ARGS__)", "ssize_t n = 0;",
                     "return strcasecmp(a, b);", "__sync_synchronize();", "void* p = alloca(4);"):
            with self.subTest(line):
                self.assertEqual(lines_of(f"int first;\n{line}\nint last;\n"), [2])

    def test_leaves_alone_what_all_have_and_what_is_no_code(self):
        for text in ("#pragma once\n#pragma pack(push, 4)\n", "unsigned line = __builtin_LINE();", "// __attribute__((x))\n",
                     "/* asm\n__thread */ int x;", 'auto text = "__attribute__ \\" asm";', 'auto text = R"x(asm " __thread)x";',
                     "auto quote = '\"'; // asm\n", "[[nodiscard]] int F();", "#include <string.h>\n", "int basm, my__thread;",
                     "void MIDL_user_allocate(int);"):
            with self.subTest(text):
                self.assertEqual(lines_of(text), [])

    def test_only_a_question_for_the_compiler_is_a_guard(self):
        use = "__attribute__((cold)) void F();\n"
        for text, found in ((f"#if defined(__GNUC__)\n{use}#endif\n", []),
                            (f"#ifdef _MSC_VER\n#else\n#if defined(X)\n{use}#endif\n#endif\n", []),
                            (f"#if defined(X)\n#elif defined(__clang__)\n{use}#endif\n", []),
                            (f"#if defined(__GNUC__) && \\\n    defined(X)\n{use}#endif\n{use}", [5]),
                            (f"#if defined(NDEBUG)\n{use}#endif\n", [2]),
                            (f"#if defined(__GNUC__)\n#if X\n#endif\n#endif\n{use}", [5]),
                            (f"#if X\n{use}#elif defined(__GNUC__)\n{use}#endif\n", [2])):
            with self.subTest(text):
                self.assertEqual(lines_of(text), found)

    def test_names_the_line_behind_comments_and_literals_of_several(self):
        self.assertEqual(lines_of('/*\n\n*/ auto x = R"(\n\n)";\n#define M \\\n  1\nasm("nop");\n'), [8])


if __name__ == "__main__":
    unittest.main()
