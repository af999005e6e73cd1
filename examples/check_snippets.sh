#!/usr/bin/env bash
# Every line that README and the guide show between ```cpp fences occurs, in this order, in an example that is built and run.
cd "$1" || exit 2
python3 - <<'PY'
import glob, re, sys
code = [[line.strip() for line in open(f, encoding='utf-8')] for f in sorted(glob.glob('examples/*.cpp'))]
blocks = [(doc, block) for doc in ('README.md', 'docs/guide.md')
          for block in re.findall(r'```cpp\n(.*?)```', open(doc, encoding='utf-8').read(), re.S)]
def occurs(block, lines):
    at = 0
    for want in filter(None, (line.strip() for line in block.splitlines())):
        if want not in lines[at:]:
            return False
        at = lines.index(want, at) + 1
    return True
bad = [(doc, b) for doc, b in blocks if not any(occurs(b, lines) for lines in code)]
for doc, b in bad:
    print(doc + ' shows code that no example holds:\n' + b)
sys.exit(1 if bad or not blocks else 0)
PY
