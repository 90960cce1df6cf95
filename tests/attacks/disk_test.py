"""What a disk without room does at the worst moment, and what must hold."""

import unittest

if __name__ == "__main__":
    unittest.main()
