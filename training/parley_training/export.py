# SPDX-License-Identifier: Apache-2.0
"""Writes a checkpoint as a model file (.zx) that the engine loads."""

import argparse

import torch

from . import model_file


def model_of(checkpoint):
    return dict(state=checkpoint["averaged"], sizes=checkpoint["sizes"], mean=checkpoint["mean"], scale=checkpoint["scale"])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("checkpoint")
    parser.add_argument("model", help="the .zx file to write")
    parser.add_argument("--lengths", type=int, nargs=2, default=model_file.LENGTHS, metavar=("CHUNK", "WARMUP"),
                        help="frames of 32 ms that the network sees at once, and that are thrown away at a seam")
    parser.add_argument("--thresholds", type=float, nargs=4, default=model_file.THRESHOLDS,
                        metavar=("OFFLINE", "PRUNE", "SEGMENT", "BACKGROUND"))
    options = parser.parse_args()
    checkpoint = torch.load(options.checkpoint, map_location="cpu")
    data = model_file.write(options.model, dict(model_of(checkpoint), lengths=options.lengths, thresholds=options.thresholds))
    print(f"{options.model}: {len(data)} bytes")


if __name__ == "__main__":
    main()
