# Writes the scenario file IN into OUT as the C++ string vdifake::builtInScenarioText().
file(READ ${IN} text)
file(WRITE ${OUT} "// Generated from default.scenario at build time; do not edit.\n"
    "namespace vdifake {\n"
    "const char* builtInScenarioText()\n{\n    return R\"vdiscenario(${text})vdiscenario\";\n}\n"
    "} // namespace vdifake\n")
