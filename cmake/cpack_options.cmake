# Read by cpack before it installs the build into its staging tree: the tool
# goes in with its debug information, which the Debian generator then moves
# into the -dbgsym package and strips from the tool it packages.
set(ENV{QHV_INSTALL_KEEPS_DEBUG_INFORMATION} 1)
