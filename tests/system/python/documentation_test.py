import os
import pathlib
import re
import tempfile
import unittest


class Documentation(unittest.TestCase):
    def test_the_examples_of_the_page_work(self):
        page = pathlib.Path(os.environ["QX_SOURCE_FOLDER"], "docs/python.md").read_text()
        examples = re.findall(r"```python\n(.*?)```", page, re.DOTALL)
        self.assertGreater(len(examples), 8)
        with tempfile.TemporaryDirectory() as folder:
            before = os.getcwd()
            os.chdir(folder)
            try:
                names = {}
                for number, example in enumerate(examples):
                    exec(compile(example, "example %d of docs/python.md" % number, "exec"), names)
            finally:
                os.chdir(before)


if __name__ == "__main__":
    unittest.main()
