# SPDX-License-Identifier: Apache-2.0
"""Training, tuning and measuring of Parley's network. See training/README.md."""
