# What is installed and how it is packaged.
