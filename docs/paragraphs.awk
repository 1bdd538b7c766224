# For docs/Doxyfile: a line at the margin of a comment ends the text of an @param, @return or @throws above it ("Blocks.
# Owner thread only."); an indented one continues it. Doxygen itself would continue it either way.
/^ *\/\/\/ @(param|return|throws)/ { inCommand = 1 }
inCommand && /^ *\/\/\/ [^ @]/ { sub(/\/\/\/ /, "/// @after "); inCommand = 0 }
!/^ *\/\/\/ / { inCommand = 0 }
{ print }
