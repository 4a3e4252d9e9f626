# Doxygen 1.9 loses members whose trailing requires-clause follows a ref-qualifier, e.g.
# "Builder&& bounds(T min, T max) && requires Shape::VALID": it then files the next member's comment under the
# wrong function. The reference drops such clauses before parsing; the headers stay as they are.
s/(\)[[:space:]]*&{1,2})[[:space:]]+requires[[:space:]]+[A-Za-z_:<>]+[[:space:]]*$/\1/
