"""Prints an assembler source that refers to every function that the installed headers declare and
leave to the library. Linked against it, what is declared but not exported is a fault of linking.

    declared_functions.py INCLUDE-FOLDER
"""

import json
import pathlib
import subprocess
import sys
import tempfile

FUNCTIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl", "CXXConversionDecl"}
# What a user of the header compiles, or what nobody can call.
WITHOUT_SYMBOL = ("inline", "constexpr", "pure", "isImplicit", "explicitlyDeleted", "explicitlyDefaulted")
TEMPLATES = {"FunctionTemplateDecl", "ClassTemplateDecl", "ClassTemplateSpecializationDecl",
             "ClassTemplatePartialSpecializationDecl"}


def syntax_trees(include, headers):
    with tempfile.NamedTemporaryFile("w", suffix=".cpp") as source:
        source.write("".join(f'#include "{header}"\n' for header in headers))
        source.flush()
        text = subprocess.run(
            ["clang++", "-std=c++20", f"-I{include}", "-fsyntax-only", "-Xclang", "-ast-dump=json",
             "-Xclang", "-ast-dump-filter=stowline::", source.name],
            check=True, capture_output=True, text=True).stdout
    decoder, at = json.JSONDecoder(), 0
    while (at := text.find("{", at)) != -1:
        tree, at = decoder.raw_decode(text, at)
        yield tree


def functions(node):
    if node.get("kind") in TEMPLATES:
        return
    inside = node.get("inner", [])
    if (node.get("kind") in FUNCTIONS and "8stowline" in node.get("mangledName", "")
            and not any(node.get(word) for word in WITHOUT_SYMBOL)
            and not any(part.get("kind") == "CompoundStmt" for part in inside)):
        yield node["mangledName"]
    for part in inside:
        yield from functions(part)


include = pathlib.Path(sys.argv[1])
headers = sorted(path.relative_to(include).as_posix() for path in include.glob("stowline/**/*.h"))
names = sorted({name for tree in syntax_trees(include, headers) for name in functions(tree)})
if not names:
    sys.exit("No function was found in the headers.")
print(".section .data.rel.declared_functions, \"aw\"\n.globl declared_functions\ndeclared_functions:")
for name in names:
    print(f".dc.a {name}")
print(".section .note.GNU-stack, \"\", @progbits")
