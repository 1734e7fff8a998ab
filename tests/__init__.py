"""A package, so that everything here runs from the root by its name: python3 -m tests.device."""
