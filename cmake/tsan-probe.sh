#!/bin/sh
# Exit 0 when a ThreadSanitizer program can run on this kernel.
dir=$(mktemp -d) || exit 1
trap 'rm -rf "$dir"' EXIT
printf 'int main() { return 0; }\n' > "$dir/p.cpp"
g++ -fsanitize=thread "$dir/p.cpp" -o "$dir/p" 2>/dev/null && "$dir/p" >/dev/null 2>&1
