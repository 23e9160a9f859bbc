# SPDX-License-Identifier: Apache-2.0
"""The model file (.zx), read and written in one place.

A model is a dictionary: `state`, tensors by the names that network.Network gives its parameters; `sizes`, the arguments of
Network; `mean` and `scale` of the 40 bands, int16 in Q10; `lengths`, chunk and warm-up in frames; `thresholds`, offline,
prune, segment, background. docs/model-file.md describes the file."""

import struct
from pathlib import Path

import numpy as np
import torch

from . import native

MAGIC = b"parley1.0.0"
LENGTHS = (640, 80)  # frames of 32 ms: what the network sees at once, what is thrown away at a seam
THRESHOLDS = (0.2, 0.25, 0.25, 0.25)  # before tuning
OFFLINE, PRUNE, SEGMENT, BACKGROUND = range(4)


def keep_background(thresholds):
    """The same thresholds with the background's not below the segments'.

    Until the first speaker opens a cluster, the background is the current one, and a frame between the two thresholds
    moves its centroid: whoever speaks first would become the background for good."""
    offline, prune, segment, background = thresholds
    return np.array([offline, prune, segment, max(segment, background)])


def _count(*values):
    return struct.pack(f"<{len(values)}i", *values)


def _eight_bit(tensor):
    return np.clip(np.round(tensor.numpy() * 128), -128, 127).astype(np.int8)


def _fully_connected(weight, bias):
    # inputs x outputs as training holds it; the file has the biases first, then the weights by output.
    inputs, outputs = weight.shape
    return _count(inputs, outputs) + _eight_bit(bias).tobytes() + np.ascontiguousarray(_eight_bit(weight).T).tobytes()


def _recurrent(w, u, b):
    # Both projections have a bias in the file; training has one for their sum.
    return _fully_connected(w, b) + _fully_connected(u, torch.zeros_like(b))


def _index(layer, backwards):
    return 6 * layer + 3 * backwards


def to_bytes(state, sizes, mean, scale, lengths=LENGTHS, thresholds=THRESHOLDS):
    state = {k: v.cpu() for k, v in state.items()}
    mean, scale = np.asarray(mean, "<i2"), np.asarray(scale, "<i2")
    parts = [MAGIC, _count(len(mean)), mean.tobytes(), scale.tobytes(), _count(sizes["layers"])]
    for backwards in (0, 1):
        for layer in range(sizes["layers"]):
            at = _index(layer, backwards)
            parts.append(_recurrent(*(state[f"recurrent.{at + i}"] for i in range(3))))
    parts.append(_fully_connected(state["embedding_weight"], state["embedding_bias"]))
    parts.append(_count(*lengths))
    parts.append(struct.pack("<4f", *keep_background(thresholds)))
    background = state["background"].numpy().astype(np.float64)
    background /= np.linalg.norm(background)
    parts += [_count(len(background)), background.astype("<f4").tobytes()]
    return b"".join(parts)


class _Reader:
    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, format):
        size = struct.calcsize("<" + format)
        values = struct.unpack_from("<" + format, self.data, self.at)
        self.at += size
        return values

    def array(self, type, count):
        values = np.frombuffer(self.data, type, count, self.at)
        self.at += values.nbytes
        return values

    def fully_connected(self):
        inputs, outputs = self.take("2i")
        bias = self.array("i1", outputs)
        weight = self.array("i1", inputs * outputs).reshape(outputs, inputs).T
        return torch.from_numpy(weight / np.float32(128)), torch.from_numpy(bias / np.float32(128))


def from_bytes(data):
    reader = _Reader(data)
    if reader.take(f"{len(MAGIC)}s") != (MAGIC,):
        raise ValueError("not a Parley model")
    bands, = reader.take("i")
    mean, scale = reader.array("<i2", bands).copy(), reader.array("<i2", bands).copy()
    layers, = reader.take("i")
    state = {}
    for backwards in (0, 1):
        for layer in range(layers):
            (w, b), (u, b_hidden) = reader.fully_connected(), reader.fully_connected()
            for i, tensor in enumerate((w, u, b + b_hidden)):
                state[f"recurrent.{_index(layer, backwards) + i}"] = tensor.contiguous()
    weight, state["embedding_bias"] = reader.fully_connected()
    state["embedding_weight"] = weight.contiguous()
    lengths = reader.take("2i")
    thresholds = reader.take("4f")
    size, = reader.take("i")
    state["background"] = torch.from_numpy(reader.array("<f4", size).copy())
    sizes = dict(layers=layers, units=state["recurrent.1"].shape[0], embedding=size, inputs=state["recurrent.0"].shape[0])
    return dict(state=state, sizes=sizes, mean=mean, scale=scale, lengths=lengths, thresholds=thresholds)


PARAMETERS_MAGIC, PARAMETERS_VERSION = b"parleycl", 2
FOOTER = struct.Struct("<QII8s")  # hash of the network, size and version of the parameters, magic


def hash_of(data):
    """FNV-1a of 64 bits, as the library computes it."""
    value = 0xcbf29ce484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001b3 & 0xffffffffffffffff
    return value


def network_of(data):
    """A file's bytes without clustering parameters behind them."""
    if len(data) < FOOTER.size or not data.endswith(PARAMETERS_MAGIC):
        return data
    return data[:len(data) - FOOTER.size - FOOTER.unpack(data[-FOOTER.size:])[1]]


def has_parameters(data):
    return len(network_of(data)) < len(data)


# To which the library brings quiet recordings, 1024 log10(energy) of the loudest band: -65 dB, as loud as the quietest
# development recordings.
LEVEL = -6656
NO_OVERLAP = _count(0)
NO_SPEECH = _count(0, 0, 0) + struct.pack("<f", 0)
NO_TREES = (([], [], native.library.parley_stages_num_features()), ([], [], native.library.parley_stages_num_segment_features()))


def speech_bytes(contexts, weights, biases, output_weights, output_bias):
    """The network that detects speech: weights (units, contexts x dimension)."""
    units, inputs = weights.shape
    parts = [_count(inputs // len(contexts), units, len(contexts), *contexts)]
    return b"".join(parts + [np.ascontiguousarray(a, "<f4").tobytes() for a in (weights, biases, output_weights, output_bias)])


def speech_of(data):
    """The bytes of a file's network that detects speech."""
    network = network_of(data)
    if not has_parameters(data):
        return NO_SPEECH
    dimension, units, contexts = struct.unpack_from("<3i", data, len(network))
    size = 12 + 4 * (contexts + units * (contexts * dimension + 2) + 1)
    return data[len(network):len(network) + size]


def _size_of_trees(data, at):
    _, roots, nodes = struct.unpack_from("<3i", data, at)
    return 12 + 4 * roots + 8 * nodes


def overlap_bytes(layers):
    """What hears two at once: (weight (outputs, inputs, taps), bias, dilation) of each layer; weights become 8 bits and a scale for
    each output."""
    parts = [_count(len(layers))]
    for weight, bias, dilation in layers:
        outputs, inputs, taps = weight.shape
        rows = weight.detach().permute(0, 2, 1).reshape(outputs, -1).numpy()
        scales = np.maximum(np.abs(rows).max(1), 1e-9).astype("<f4") / np.float32(127)
        parts += [_count(inputs, outputs, taps, dilation), scales.tobytes(), bias.detach().numpy().astype("<f4").tobytes(),
                  np.clip(np.round(rows / scales[:, None]), -127, 127).astype(np.int8).tobytes()]
    return b"".join(parts)


def _place_of_overlap(data):
    at = len(network_of(data)) + len(speech_of(data))
    for _ in range(2):
        at += _size_of_trees(data, at)
    return at


def overlap_of(data):
    """The bytes of what hears two at once in a file."""
    if not has_parameters(data):
        return NO_OVERLAP
    begin = at = _place_of_overlap(data)
    if at == len(data) - FOOTER.size:  # former models have nothing behind the trees
        return NO_OVERLAP
    layers, = struct.unpack_from("<i", data, at)
    at += 4
    for _ in range(layers):
        inputs, outputs, taps = struct.unpack_from("<3i", data, at)
        at += 16 + outputs * (8 + inputs * taps)
    return data[begin:at]


def _write(path, network, parameters):
    parameters += struct.pack("<h", LEVEL)
    Path(path).write_bytes(network + parameters + FOOTER.pack(hash_of(network), len(parameters), PARAMETERS_VERSION,
                                                              PARAMETERS_MAGIC))


def write_parameters(path, data, speech, all_trees, overlap):
    """A model with what detects speech (see speech_bytes), the trees that choose among divisions and those of confidence (`roots`,
    `nodes`: feature, distance, value, and number of features each), and what hears two at once."""
    parameters = speech
    for roots, nodes, num_features in all_trees:
        parameters += _count(num_features, len(roots), len(nodes)) + np.asarray(roots, "<i4").tobytes()
        parameters += b"".join(struct.pack("<hhf", *node) for node in nodes)
    _write(path, network_of(data), parameters + overlap)


def write_overlap(path, data, overlap):
    """A model that has parameters, with something else that hears two at once."""
    network = network_of(data)
    _write(path, network, data[len(network):_place_of_overlap(data)] + overlap)


def read(path):
    return from_bytes(Path(path).read_bytes())


def write(path, model):
    data = to_bytes(**model)
    Path(path).write_bytes(data)
    return data
