-- expect: error "position out of bounds"
return table.insert({}, 1e12, 1)
