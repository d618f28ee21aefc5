# Install rules (filled with the package configuration and pkg-config file).
