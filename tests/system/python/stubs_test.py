import ast
import os
import pathlib
import unittest

import qxfx


def stubs():
    text = pathlib.Path(os.environ["QX_SOURCE_FOLDER"], "python/qxfx/__init__.pyi").read_text()
    return ast.parse(text).body


class Stubs(unittest.TestCase):
    def test_name_everything_that_is_exported(self):
        named = {each.name for each in stubs() if isinstance(each, (ast.ClassDef, ast.FunctionDef))}
        self.assertEqual(named, set(qxfx.__all__))

    def test_name_every_member(self):
        for each in stubs():
            if isinstance(each, ast.ClassDef):
                named = {member.name for member in each.body if isinstance(member, ast.FunctionDef)}
                there = {name for name, value in vars(getattr(qxfx, each.name)).items() if not name.startswith("_")}
                self.assertEqual({name for name in named if not name.startswith("_")}, there, each.name)

    def test_everything_has_a_text(self):
        for name in qxfx.__all__:
            if name not in ("Error", "EffectError", "DeviceError"):
                self.assertTrue(getattr(qxfx, name).__doc__, name)

    def test_keywords_are_those_of_the_functions(self):
        for each in stubs():
            if isinstance(each, ast.FunctionDef):
                text = getattr(qxfx, each.name).__doc__.splitlines()[0]
                for argument in each.args.args + each.args.kwonlyargs:
                    self.assertIn(argument.arg + ":", text)


if __name__ == "__main__":
    unittest.main()
