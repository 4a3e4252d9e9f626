-- expect: error "at index 1"
return table.concat({}, "", 1, 1e12)
