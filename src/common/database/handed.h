/* Connections that this process makes for children that are forked off it: a child uses
   one, and hands it back for the next. A new connection is a new process of the database
   server, which costs more than all statements of a check.

   Handed out are only connections without encryption, whose state is no more than the
   server's: each process has its own copy of the rest. One whose child was killed, ended
   within a statement or found it closed is let go; so is one on which the server has said
   something meanwhile. Where none can be made at once, the children connect by themselves
   from then on: the server may be full. */
#pragma once

/* A connection for the next child.
   Result  its number, -1 there is none: the child makes its own */
int iDB_HAND_OUT();

/* Its descriptor, which the child keeps open. */
int iDB_HANDED_FD(int iHanded);

/* In the child, before its first statement. */
void v_DB_TAKE_HANDED(int iHanded);

/* The child has ended.
   bMore  another may need the connection; else it is let go */
void v_DB_HAND_BACK(int iHanded, bool bMore);
