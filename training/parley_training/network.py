# SPDX-License-Identifier: Apache-2.0
"""The network as training sees it: floating point, with weights rounded to what the model file can hold."""

import ctypes
import math
from concurrent.futures import ThreadPoolExecutor

import torch
from torch import nn

from .native import library

WEIGHT_MIN, WEIGHT_MAX = -1.0, 127 / 128  # of 8-bit weights with 7 fractional bits
_directions = ThreadPoolExecutor(2)  # a core for each direction


class RoundWeight(torch.autograd.Function):
    """A weight as the engine will have it; the gradient passes as if it had not been rounded."""

    @staticmethod
    def forward(context, weight):
        return torch.clamp(torch.round(weight * 128), -128, 127) / 128

    @staticmethod
    def backward(context, gradient):
        return gradient


def _address(tensor):
    return ctypes.c_void_p(0 if tensor is None else tensor.data_ptr())


class BothDirections(torch.autograd.Function):
    """A bidirectional layer on the processor (native/recurrent.cpp): frames x batch x inputs to frames x batch x units."""

    @staticmethod
    def forward(context, x, *weights):
        frames, batch, inputs = x.shape
        units = weights[1].shape[0]
        x = x.contiguous()

        def run(backwards):
            w, u, b = (p.detach().contiguous() for p in weights[3 * backwards:3 * backwards + 3])
            gates = torch.empty(frames, batch, 3 * units)
            cells, outputs, cell_tanh = (torch.empty(frames, batch, units) for _ in range(3))
            library.training_recurrent_forward(frames, batch, inputs, units, backwards, *map(
                _address, (x, w, u, b, gates, cells, outputs, cell_tanh)))
            return gates, cells, outputs, cell_tanh

        other = _directions.submit(run, 1)
        here = run(0)
        context.states = here, other.result()
        context.save_for_backward(x, *weights)
        return context.states[0][2] + context.states[1][2]

    @staticmethod
    def backward(context, d_outputs):
        x, *weights = context.saved_tensors
        frames, batch, inputs = x.shape
        units = weights[1].shape[0]
        d_outputs = d_outputs.contiguous()

        def run(backwards):
            w, u = (p.detach().contiguous() for p in weights[3 * backwards:3 * backwards + 2])
            d_x = torch.empty_like(x) if context.needs_input_grad[0] else None
            d_w, d_u, d_b = torch.empty_like(w), torch.empty_like(u), torch.empty(3 * units)
            library.training_recurrent_backward(frames, batch, inputs, units, backwards, *map(
                _address, (x, w, u, *context.states[backwards], d_outputs, d_x, d_w, d_u, d_b)))
            return d_x, d_w, d_u, d_b

        other = _directions.submit(run, 1)
        here, there = run(0), other.result()
        context.states = None
        d_x = here[0] + there[0] if here[0] is not None else None
        return (d_x, *here[1:], *there[1:])


@torch.jit.script
def one_direction(x, w, u, b, backwards: bool):
    """The same layer, one direction, in PyTorch's own operations: for other devices, and to check the compiled one."""
    units = u.shape[0]
    projected = x @ w + b
    h = torch.zeros(x.shape[1], units, device=x.device)
    c = torch.zeros(x.shape[1], units, device=x.device)
    outputs = [h] * x.shape[0]
    for step in range(x.shape[0]):
        t = x.shape[0] - 1 - step if backwards else step
        gate = projected[t] + h @ u
        i = torch.sigmoid(gate[:, :units])
        g = torch.tanh(gate[:, units:2 * units])
        o = torch.sigmoid(gate[:, 2 * units:])
        c = c + i * (g - c)
        h = o * torch.tanh(c)
        outputs[t] = h
    return torch.stack(outputs)


def both_directions(x, weights):
    if x.device.type == "cpu":
        return BothDirections.apply(x, *weights)
    return one_direction(x, *weights[:3], False) + one_direction(x, *weights[3:], True)


class Network(nn.Module):
    """Normalized features (frames, batch, 80) to embeddings (frames, batch, embedding), not yet of unit length.

    `background` is the reference vector of "no speaker"."""

    def __init__(self, layers, units, embedding, inputs=80):
        super().__init__()
        self.sizes = dict(layers=layers, units=units, embedding=embedding, inputs=inputs)
        self.recurrent = nn.ParameterList()  # per layer: w, u, b forwards, w, u, b backwards
        for layer in range(layers):
            width = inputs if layer == 0 else units
            for _ in range(2):
                w = (torch.rand(width, 3 * units) * 2 - 1) * math.sqrt(6 / (width + units)) * 0.7
                u = torch.cat([nn.init.orthogonal_(torch.empty(units, units), 0.6) for _ in range(3)], 1)
                b = torch.zeros(3 * units)
                b[:units] = -0.9  # input gates half shut: cells that remember from the start
                for tensor in (w, u, b):
                    self.recurrent.append(nn.Parameter(tensor))
        self.embedding_weight = nn.Parameter((torch.rand(units, embedding) * 2 - 1) * math.sqrt(6 / (units + embedding)))
        self.embedding_bias = nn.Parameter(torch.zeros(embedding))
        self.background = nn.Parameter(torch.randn(embedding) * 0.1)

    def forward(self, x):
        rounded = [RoundWeight.apply(p) for p in self.recurrent]
        for layer in range(self.sizes["layers"]):
            x = both_directions(x, rounded[6 * layer:6 * layer + 6])
        return x @ RoundWeight.apply(self.embedding_weight) + RoundWeight.apply(self.embedding_bias)

    @torch.no_grad()
    def grow_from(self, state):
        """Takes over the weights of a network with as many units or fewer. What is new listens to everything and is heard
        by nothing yet, so that the embeddings stay what they were."""
        for name, mine in self.state_dict().items():
            theirs = state[name]
            if mine.shape == theirs.shape:
                mine.copy_(theirs)
                continue
            # Gates lie side by side, units each; their new units keep their random weights, old units get none from new.
            gates = 3 if name.startswith("recurrent.") else 1
            ours, old = (t.reshape(*t.shape[:-1], gates, -1) for t in (mine, theirs))
            units = old.shape[-1]
            if ours.dim() == 3:
                ours[old.shape[0]:, :, :units] = 0
                ours[:old.shape[0], :, :units] = old
            else:
                ours[:, :units] = old

    @torch.no_grad()
    def clamp_weights(self):
        """Keeps what is rounded within reach of the 8-bit range."""
        for p in (*self.recurrent, self.embedding_weight, self.embedding_bias):
            p.clamp_(WEIGHT_MIN - 0.003, WEIGHT_MAX + 0.003)
