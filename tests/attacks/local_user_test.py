"""What another user of the same device may try, and what must hold."""

import unittest

if __name__ == "__main__":
    unittest.main()
