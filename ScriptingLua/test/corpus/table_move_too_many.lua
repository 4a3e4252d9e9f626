-- expect: error "too many elements to move"
return table.move({}, math.mininteger, math.maxinteger, 1)
