"""The command `moraine` as a black box, in a sandbox."""
