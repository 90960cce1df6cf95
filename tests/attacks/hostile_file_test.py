"""What a file made to do harm may try, and what must hold."""

import unittest

if __name__ == "__main__":
    unittest.main()
