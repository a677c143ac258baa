#!/bin/sh
# Writes the two example tables from their published counts, one line per person. An empty line stands
# behind the header because the reader throws that line away.
set -eu
cd "$(dirname "$0")"

# Passengers and crew of the Titanic (Dawson 1995): class, sex, age, then how many died and survived.
awk 'BEGIN { print "Class,Sex,Age,Survived\n" }
     { for (i = 0; i < $4; ++i) print $1 "," $2 "," $3 ",No"
       for (i = 0; i < $5; ++i) print $1 "," $2 "," $3 ",Yes" }' > titanic.csv <<'COUNTS'
1st  Male   Child   0   5
1st  Female Child   0   1
1st  Male   Adult 118  57
1st  Female Adult   4 140
2nd  Male   Child   0  11
2nd  Female Child   0  13
2nd  Male   Adult 154  14
2nd  Female Adult  13  80
3rd  Male   Child  35  13
3rd  Female Child  17  14
3rd  Male   Adult 387  75
3rd  Female Adult  89  76
Crew Male   Child   0   0
Crew Female Child   0   0
Crew Male   Adult 670 192
Crew Female Adult   3  20
COUNTS

# Students of statistics (Snee 1974): hair, eyes, then how many are male and female.
awk 'BEGIN { print "Hair,Eye,Sex\n" }
     { for (i = 0; i < $3; ++i) print $1 "," $2 ",Male"
       for (i = 0; i < $4; ++i) print $1 "," $2 ",Female" }' > hair_eye_color.csv <<'COUNTS'
Black Brown 32 36
Black Blue  11  9
Black Hazel 10  5
Black Green  3  2
Brown Brown 53 66
Brown Blue  50 34
Brown Hazel 25 29
Brown Green 15 14
Red   Brown 10 16
Red   Blue  10  7
Red   Hazel  7  7
Red   Green  7  7
Blond Brown  3  4
Blond Blue  30 64
Blond Hazel  5  5
Blond Green  8  8
COUNTS
