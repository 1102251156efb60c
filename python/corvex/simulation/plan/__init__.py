"""Planning: which weights are to be held from which session on."""
