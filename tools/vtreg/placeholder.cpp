// Replaced by the .reg reader and writer.
