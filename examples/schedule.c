// A meeting (2 hours) and a call (1 hour) within office hours 9 to 17, both
// ending by 13, the call not in the lunch break from 12 to 13, and the meeting
// starting on an odd hour: from:step:to gives 9, 11, 13, 15.
int {9:2:15} meeting;
int {9:16} call;

meeting + 2 <= 13 && call + 1 <= 13;
!overlap(meeting, 2, call, 1);
!sub_interval(call, call, 12, 12);   // the call's hour [call, call] is not [12, 12]
call < meeting ? call + 2 <= meeting : 1;   // a break before a meeting that follows the call
