# The command-line client kxdata7.
