# Dense micro-kernels: one text, compiled for each instruction set and chosen at run time.
# (Filled by the numeric core.)
