print points
print same
print *points.inst_
print names
print words
print places
print none
morva-records points
morva-records points 1 seen::point
morva-tree same 0
python
try:
    gdb.execute("morva-records points 1 no_such_type")
except gdb.error as error:
    print(error)
end
