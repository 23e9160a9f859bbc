"""Training, tuning and measuring of Parley's network. See training/README.md."""
