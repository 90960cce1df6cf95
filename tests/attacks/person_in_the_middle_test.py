"""What somebody between the device and its server may try, and what must hold."""

import unittest

if __name__ == "__main__":
    unittest.main()
