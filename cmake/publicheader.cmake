# Copies a public header for installation without the test suite's white-box access: the lines
# that befriend its probes (friend class Vdi...Probe;).
file(READ "${IN}" text)
string(REGEX REPLACE "[ \t]*friend class Vdi[A-Za-z]*Probe;[^\n]*\n" "" text "${text}")
file(WRITE "${OUT}" "${text}")
