// Not yet written.
