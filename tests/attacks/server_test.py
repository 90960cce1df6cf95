"""What a DM server with an account may try, and what must hold."""

import unittest

if __name__ == "__main__":
    unittest.main()
