#!/usr/bin/env python3
"""The language-key check must fail, and say why, on every fault it exists for."""

import importlib.util
import pathlib
import tempfile
import unittest

_spec = importlib.util.spec_from_file_location(
    "check_language_keys", pathlib.Path(__file__).with_name("check-language-keys.py"))
checker = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(checker)

CODE = (
    'auto a = text(u"GREETING_TITLE");\n'
    'static const char16_t* keys[] = {u"FIELD_ONE", u"FIELD_TWO"};\n'
    'auto b = env(L"FERRANT_STORE");  // an environment variable, not a key\n'
    'auto c = root(u"HKEY_CURRENT_USER");\n'
    'auto d = u"ENU";  // no underscore: a language code\n'
    'auto e = "PLAIN_NARROW";  // narrow: never a key\n'
)
RC = 'IDD_PAGE DIALOGEX 0, 0, 269, 218\nCAPTION "PAGE_TAB"\nBEGIN\nEND\n'
GOOD = "# comment\r\nLANGUAGE_IS_RIGHTTOLEFT=false\r\nGREETING_TITLE=Hello\r\n" \
       "FIELD_ONE=One\r\nFIELD_TWO=Two\r\nPAGE_TAB=Page\r\n"


def utf16(text):
    return b"\xff\xfe" + text.encode("utf-16-le")


class CheckLanguageKeys(unittest.TestCase):
    def run_check(self, files, code=CODE, extra_sources=None):
        with tempfile.TemporaryDirectory() as tmp:
            root = pathlib.Path(tmp)
            (root / "src" / "ui" / "res").mkdir(parents=True)
            (root / "src" / "ui" / "page.cpp").write_text(code)
            (root / "src" / "ui" / "res" / "pages.rc").write_text(RC)
            for name, text in (extra_sources or {}).items():
                (root / "src" / name).parent.mkdir(parents=True, exist_ok=True)
                (root / "src" / name).write_text(text)
            (root / "Language").mkdir()
            for name, data in files.items():
                (root / "Language" / name).write_bytes(data)
            used, _, problems = checker.check(root)
            return sorted(used), problems

    def test_finds_the_keys_of_code_and_templates_only(self):
        used, problems = self.run_check({"strings.ENU": utf16(GOOD)})
        self.assertEqual(used, ["FIELD_ONE", "FIELD_TWO", "GREETING_TITLE", "PAGE_TAB"])
        self.assertEqual(problems, [])

    def test_reports_each_fault_by_file_and_key(self):
        cases = [
            ("missing key", {"strings.DEU": utf16(GOOD.replace("FIELD_TWO=Two\r\n", ""))},
             ["strings.DEU: missing key FIELD_TWO (used at src/ui/page.cpp:2)"]),
            ("unused key", {"strings.HEB": utf16(GOOD + "OLD_KEY=Old\r\n")},
             ["strings.HEB: key OLD_KEY is not used by the code"]),
            ("missing tab caption", {"strings.ENU": utf16(GOOD.replace("PAGE_TAB=Page\r\n", ""))},
             ["strings.ENU: missing key PAGE_TAB (used at src/ui/res/pages.rc:2)"]),
            ("no signature", {"strings.ENU": GOOD.encode("utf-8")},
             ["strings.ENU: does not start with the UTF-16 signature FF FE",
              "strings.ENU: missing key FIELD_ONE (used at src/ui/page.cpp:2)",
              "strings.ENU: missing key FIELD_TWO (used at src/ui/page.cpp:2)",
              "strings.ENU: missing key GREETING_TITLE (used at src/ui/page.cpp:1)",
              "strings.ENU: missing key PAGE_TAB (used at src/ui/res/pages.rc:2)"]),
            ("bare LF", {"strings.ENU": utf16(GOOD.replace("Hello\r\n", "Hello\n"))},
             ["strings.ENU:3: a line end other than CR LF",
              "strings.ENU: missing key FIELD_ONE (used at src/ui/page.cpp:2)",
              "strings.ENU: missing key GREETING_TITLE (used at src/ui/page.cpp:1)"]),
            ("last line unended", {"strings.ENU": utf16(GOOD + "FIELD_ONE=x")},
             ["strings.ENU: the last line has no CR LF (it would be ignored)"]),
            ("duplicate", {"strings.ENU": utf16(GOOD + "FIELD_ONE=Again\r\n")},
             ["strings.ENU:7: key FIELD_ONE appears twice"]),
            ("no equals sign", {"strings.ENU": utf16(GOOD + "JUST_A_KEY\r\n")},
             ["strings.ENU:7: not a KEY=text line: 'JUST_A_KEY'"]),
            ("space before a key", {"strings.ENU": utf16(GOOD + " FIELD_ONE=x\r\n")},
             ["strings.ENU:7: not a KEY=text line: ' FIELD_ONE=x'"]),
            ("no files", {}, ["no Language/strings.* file"]),
        ]
        for what, files, expected in cases:
            with self.subTest(what):
                _, problems = self.run_check(files)
                self.assertEqual(problems, expected)

    def test_tests_and_test_programs_do_not_count(self):
        used, problems = self.run_check(
            {"strings.ENU": utf16(GOOD)},
            extra_sources={"ui/page_test.cpp": 'text(u"ONLY_IN_A_TEST");',
                           "store/fake.cpp": 'text(u"ONLY_IN_THE_STORE");',
                           "addin/sim/sim_win32.cpp": 'text(u"ONLY_IN_THE_SIM");'})
        self.assertNotIn("ONLY_IN_A_TEST", used)
        self.assertEqual(problems, [])

    def test_a_scan_that_finds_nothing_fails(self):
        _, problems = self.run_check({"strings.ENU": utf16("LANGUAGE_IS_RIGHTTOLEFT=false\r\n")},
                                     code="int main() {}\n")
        self.assertEqual(problems, [
            "no language key found in the C++ sources under src/: the scan is broken",
            "strings.ENU: missing key PAGE_TAB (used at src/ui/res/pages.rc:2)"])


if __name__ == "__main__":
    unittest.main()
