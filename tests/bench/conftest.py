"""Tests of the code that computes and prints the figures of ./dev bench."""

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.join(HERE, "..", "..", "bench"))
sys.path.append(os.path.join(HERE, "..", "lan"))
