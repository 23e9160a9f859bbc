"""Writes a checkpoint as a model file (.zx) that the engine loads."""

import argparse
import struct
from pathlib import Path

import numpy as np
import torch

CHUNK, WARMUP = 640, 80  # frames
THRESHOLDS = (0.2, 0.25, 0.15, 0.25)  # offline, prune, segment, background, before tuning


def count(*values):
    return struct.pack(f"<{len(values)}i", *values)


def eight_bit(tensor):
    return np.clip(np.round(tensor.numpy() * 128), -128, 127).astype(np.int8)


def fully_connected(weight, bias):
    """inputs x outputs as training holds it; the file has the biases first, then the weights by output."""
    inputs, outputs = weight.shape
    return count(inputs, outputs) + eight_bit(bias).tobytes() + np.ascontiguousarray(eight_bit(weight).T).tobytes()


def recurrent(w, u, b):
    # Both projections have a bias in the file; training has one for their sum.
    return fully_connected(w, b) + fully_connected(u, torch.zeros_like(b))


def model_bytes(checkpoint, chunk=CHUNK, warmup=WARMUP, thresholds=THRESHOLDS):
    state = {k: v.cpu() for k, v in checkpoint["averaged"].items()}
    layers = checkpoint["sizes"]["layers"]
    mean, scale = (np.asarray(checkpoint[k], "<i2") for k in ("mean", "scale"))
    parts = [b"parley1.0.0", count(len(mean)), mean.tobytes(), scale.tobytes(), count(layers)]
    for backwards in (0, 1):
        for layer in range(layers):
            at = 6 * layer + 3 * backwards
            parts.append(recurrent(*(state[f"recurrent.{at + i}"] for i in range(3))))
    parts.append(fully_connected(state["embedding_weight"], state["embedding_bias"]))
    parts.append(count(chunk, warmup))
    parts.append(struct.pack("<4f", *thresholds))
    background = state["background"].numpy().astype(np.float64)
    background /= np.linalg.norm(background)
    parts += [count(len(background)), background.astype("<f4").tobytes()]
    return b"".join(parts)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("checkpoint")
    parser.add_argument("model", help="the .zx file to write")
    parser.add_argument("--chunk", type=int, default=CHUNK, help="frames of 32 ms that the network sees at once")
    parser.add_argument("--warmup", type=int, default=WARMUP, help="frames at a seam that are thrown away")
    parser.add_argument("--thresholds", type=float, nargs=4, default=THRESHOLDS,
                        metavar=("OFFLINE", "PRUNE", "SEGMENT", "BACKGROUND"))
    options = parser.parse_args()
    data = model_bytes(torch.load(options.checkpoint, map_location="cpu"), options.chunk, options.warmup, options.thresholds)
    Path(options.model).write_bytes(data)
    print(f"{options.model}: {len(data)} bytes")


if __name__ == "__main__":
    main()
