"""The C interface from Python's ctypes, through the example examples/whats_new.py.
   ctypes_test.py LIBRARY SAMPLE WHATS_NEW_PROGRAM EXAMPLE_DIR [TEST]"""
import subprocess
import sys
import unittest

LIBRARY, SAMPLE, WHATS_NEW_PROGRAM, EXAMPLE_DIR = sys.argv[1:5]
sys.path.insert(0, EXAMPLE_DIR)
import whats_new  # noqa: E402


class CTypes(unittest.TestCase):
    def setUp(self):
        self.velcan = whats_new.Velcan(LIBRARY)

    def test_orders_2_10_after_2_9(self):
        self.assertEqual(self.velcan.compare("2.10", "2.9"), 1)
        self.assertEqual(self.velcan.compare("2.9", "2.10"), -1)
        self.assertTrue(self.velcan.is_version("2.10"))
        self.assertFalse(self.velcan.is_version("2."))

    def test_reads_the_sample_through_the_c_calls(self):
        versions = self.velcan.read(SAMPLE)
        self.assertEqual(len(versions), 12)
        self.assertEqual(versions[0][:2], ("4.2.0", "2026-10-14"))
        self.assertEqual(versions[0][2][1], "New export to PDF/A & SVG, with embedded fonts.")

    def test_a_missing_file_raises_the_librarys_message(self):
        with self.assertRaisesRegex(OSError, "^cannot open /nonexistent/h.xml: "):
            self.velcan.read("/nonexistent/h.xml")

    def test_example_prints_what_the_cpp_example_prints(self):
        python = subprocess.run([sys.executable, EXAMPLE_DIR + "/whats_new.py", LIBRARY, "4.1.0",
                                 SAMPLE], capture_output=True, check=True).stdout
        cpp = subprocess.run([WHATS_NEW_PROGRAM, "4.1.0", SAMPLE], capture_output=True,
                             check=True).stdout
        self.assertEqual(python, cpp)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]] + sys.argv[5:])
