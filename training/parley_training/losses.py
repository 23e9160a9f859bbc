# SPDX-License-Identifier: Apache-2.0
"""What is asked of the embeddings, in the terms in which the clustering will use them.

The clustering averages runs of frames of one speaker, merges runs by their cosine against one threshold for all recordings,
and sends frames near the reference vector to the background. So:

  voice       the mean of every run names its voice among all voices of the training, each represented by where it was heard
              in earlier recordings (additive margin softmax)
  frame       every frame is nearest to its speaker's mean over the other chunks of the recording, among the recording's
              speakers and the background
  pair        two runs of a recording belong together or not: logistic on their cosine, one slope and offset for all
  centroid    the same of speakers' means over whole chunks, and of different speakers' means over the recording: what the
              agglomeration compares once runs have grown together
  follow      a frame belongs to the run before it or not: logistic on its cosine with that run's mean, likewise; with this
              the clustering decides where a run ends
  background  a frame is speech or not: logistic on its cosine with the reference vector, likewise
  overlap     a frame in which two speak lies between both: at the normalised sum of their means over the recording, so that
              the two nearest speakers of a frame and their balance tell that both are there
"""

import math

import torch
import torch.nn.functional as F
from torch import nn

from .simulate import MAX_SPEAKERS

SHORTEST_RUN = 8  # frames
TERMS = ("voice", "frame", "pair", "centroid", "follow", "background", "overlap")


def number_runs(label):
    """(frames, B) speakers to numbers of runs, counted through the batch; -1 where nobody speaks.

    A run ends where another speaker begins, as it does for the clustering; pauses do not end it."""
    frames = label.shape[0]
    position = torch.arange(frames, device=label.device)[:, None].expand_as(label)
    last = torch.cummax(torch.where(label >= 0, position, torch.zeros_like(position)), 0).values
    held = torch.gather(label, 0, last)  # who spoke last
    changed = torch.zeros_like(label, dtype=torch.bool)
    changed[1:] = held[1:] != held[:-1]
    changed[0] = True
    run = torch.cumsum(changed.t().reshape(-1).long(), 0).reshape(label.shape[1], frames).t() - 1
    return torch.where(label >= 0, run, torch.full_like(run, -1))


def pair_errors(cosine, recording, speaker, slope, offset):
    """Logistic errors of all pairs of one recording: of those of one speaker, of those of two. Rows of `cosine` belong to
    `speaker` in `recording`; "same" below the offset and "different" above it is wrong."""
    pair = torch.triu(recording[:, None] == recording, 1)
    same = speaker[:, None] == speaker
    logits = slope * (cosine - offset)
    error = F.softplus(torch.where(same, -logits, logits))
    return error[pair & same], error[pair & ~same]


def mean_or_zero(values):
    return values.sum() / max(1, values.numel())


class Losses(nn.Module):
    def __init__(self, num_voices, embedding):
        super().__init__()
        # Where each voice was last heard, a running mean. It is met once in a hundred steps: an optimizer that scales
        # steps by past gradients would move it by noise in between.
        self.register_buffer("voices", F.normalize(torch.randn(num_voices, embedding), dim=1))
        self.frame_scale = nn.Parameter(torch.tensor(2.5))  # logarithm
        self.pair = nn.Parameter(torch.tensor([2.3, 0.5]))  # logarithm of the slope, offset
        self.follow = nn.Parameter(torch.tensor([2.3, 0.4]))
        self.near = nn.Parameter(torch.tensor([2.3, 0.4]))

    @torch.no_grad()
    def remember(self, voice, sums):
        heard, index = torch.unique(voice, return_inverse=True)
        now = F.normalize(torch.zeros(len(heard), sums.shape[1], device=sums.device).index_add(0, index, sums), dim=1)
        self.voices[heard] = F.normalize(self.voices[heard] + now, dim=1)

    def following(self, e, run, spoken, sums, length, weight):
        frames, batch, size = e.shape
        mean = F.normalize(sums, dim=1, eps=1e-4)
        # Runs are counted through the batch: the one before a column's first run belongs to another column.
        first = torch.where(run >= 0, run, run.max() + 1).min(0).values
        own = run.clamp(min=0)
        before = (own - 1).clamp(min=0)
        slope, offset = self.follow[0].exp(), self.follow[1]
        long = length >= SHORTEST_RUN
        losses = []
        for which, belongs in ((own, True), (before, False)):
            counts = spoken & long[which] & ((run > first) | belongs)
            logits = slope * ((e[counts] * mean[which[counts]]).sum(1) - offset)
            w = weight[counts]
            losses.append((F.softplus(-logits if belongs else logits) * w).sum() / w.sum().clamp(min=1))
        return sum(losses)

    def forward(self, embedding, background, label, second, weight, voices, chunks):
        """embedding (frames, B, E) as the network gives it; the rest as simulate.batch does. {term: loss}, {name: share}."""
        frames, batch, size = embedding.shape
        e = F.normalize(embedding, dim=2, eps=1e-4)
        background = F.normalize(background, dim=0)
        recording = torch.arange(batch, device=label.device) // chunks
        losses, shares = {}, {}

        # Runs
        run = number_runs(label)
        spoken = (run >= 0) & (weight > 0.25)
        which = run[spoken]
        num_runs = int(run.max()) + 1
        sums = torch.zeros(num_runs, size, device=e.device).index_add(0, which, e[spoken])
        length = torch.zeros(num_runs, device=e.device).index_add(0, which, torch.ones_like(which, dtype=e.dtype))
        in_recording = torch.zeros(num_runs, dtype=torch.long, device=e.device)
        in_recording[which] = recording.expand(frames, batch)[spoken]
        speaker = torch.zeros(num_runs, dtype=torch.long, device=e.device)
        speaker[which] = label[spoken]
        losses["follow"] = self.following(e, run, spoken, sums, length, weight)
        keep = length >= SHORTEST_RUN
        mean, length = F.normalize(sums[keep], dim=1, eps=1e-4), length[keep]
        in_recording, speaker = in_recording[keep], speaker[keep]

        voice = voices[in_recording, speaker]
        known = voice >= 0  # not of real conversations
        voice, heard = voice[known], mean[known]
        cosine = heard @ self.voices.clone().t()
        logits = 20.0 * cosine.scatter_add(1, voice[:, None], torch.full((len(voice), 1), -0.2, device=e.device))
        importance = length[known].clamp(max=60).sqrt()
        losses["voice"] = (F.cross_entropy(logits, voice, reduction="none") * importance).sum() / importance.sum()
        shares["voice"] = (cosine.argmax(1) == voice).float().mean()
        self.remember(voice, heard.detach() * length[known][:, None])

        # Pairs of runs
        slope, offset = self.pair[0].exp(), self.pair[1]
        long = length >= 12
        same, different = pair_errors((mean @ mean.t())[long][:, long], in_recording[long], speaker[long], slope, offset)
        losses["pair"] = mean_or_zero(same) + mean_or_zero(different)

        # Frames against their recording's speakers
        clear = ((label >= 0) & (weight > 0.25)).float()
        one_hot = F.one_hot(label.clamp(min=0), MAX_SPEAKERS).float() * clear[..., None]
        by_chunk = torch.einsum("tbe,tbs->bse", e, one_hot)
        count = one_hot.sum(0)
        total = by_chunk.reshape(-1, chunks, MAX_SPEAKERS, size).sum(1).repeat_interleave(chunks, 0)
        total_count = count.reshape(-1, chunks, MAX_SPEAKERS).sum(1).repeat_interleave(chunks, 0)
        elsewhere = (total_count - count > 10)[..., None]
        there = count >= 15
        chunk_mean = F.normalize(by_chunk[there], dim=1, eps=1e-4)
        who = torch.arange(MAX_SPEAKERS, device=e.device)
        same, different = pair_errors(chunk_mean @ chunk_mean.t(), recording[:, None].expand_as(there)[there],
                                      who.expand_as(there)[there], slope, offset)
        shares["same"], shares["different"] = (mean_or_zero((v < math.log(2)).float()) for v in (same, different))
        there = total_count[::chunks] >= 15
        whole_mean = F.normalize(total[::chunks][there], dim=1, eps=1e-4)
        _, apart = pair_errors(whole_mean @ whole_mean.t(), recording[::chunks, None].expand_as(there)[there],
                               who.expand_as(there)[there], slope, offset)
        losses["centroid"] = mean_or_zero(same) + 0.5 * (mean_or_zero(different) + mean_or_zero(apart))

        own = F.normalize(torch.where(elsewhere, total - by_chunk, total), dim=2, eps=1e-4)
        others = F.normalize(total, dim=2, eps=1e-4)
        is_own = F.one_hot(label.clamp(min=0), MAX_SPEAKERS).bool() & (label >= 0)[..., None]
        cosine = torch.where(is_own, torch.einsum("tbe,bse->tbs", e, own) - 0.1, torch.einsum("tbe,bse->tbs", e, others))
        cosine = torch.where(total_count > 0, cosine, torch.full_like(cosine, -10))
        to_background = e @ background
        logits = torch.cat([to_background[..., None], cosine], 2) * self.frame_scale.exp()
        target = (label + 1).reshape(-1)
        w = weight.reshape(-1)
        wrong = F.cross_entropy(logits.reshape(-1, MAX_SPEAKERS + 1), target, reduction="none")
        losses["frame"] = (wrong * w).sum() / w.sum()
        shares["frame"] = ((logits.argmax(2).reshape(-1) == target).float() * w).sum() / w.sum()

        # Both of an overlap, where both are heard elsewhere in the recording, too.
        both = (second >= 0) & (label >= 0)
        known = total_count >= 30
        both &= known.gather(1, label.clamp(min=0).t()).t() & known.gather(1, second.clamp(min=0).t()).t()
        column = torch.arange(batch, device=e.device).expand(frames, batch)[both]
        between = F.normalize(others[column, label[both]] + others[column, second[both]], dim=1, eps=1e-4).detach()
        losses["overlap"] = mean_or_zero(1 - (e[both] * between).sum(1))

        logits = self.near[0].exp() * (to_background - self.near[1])
        quiet = label < 0
        losses["background"] = (F.softplus(torch.where(quiet, -logits, logits)) * weight).sum() / w.sum()
        shares["speech"] = (((logits < 0) != quiet).float() * weight).sum() / w.sum()
        return losses, shares
