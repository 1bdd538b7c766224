# For docs/Doxyfile: what becomes of a page's links (see there). Pictures and addresses of the web stay, and so does what
# only looks like a link: a lambda.
s/\]\((docs\/)?(LIBRARY|PROTOCOL|ARCHITECTURE)\.md(#[^)]*)?\)/](@\2)/g
s/(^|[^!])\[([^][]+)\]\(([^@): ][^): ]*[./#][^): ]*|[.#][^): ]*|[A-Z]+)\)/\1\2/g
s/\]\(@([A-Z]+)\)/](docs\/\1.md)/g
