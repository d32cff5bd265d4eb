-- The three tables of the server's database that vk_config_client works on.
-- Other programs of the server add columns of their own; the tool needs these.

create table oper_systems (
    os       varchar(32) primary key,
    platform varchar(20) not null       -- UNIX, LINUX, WNT, NETWARE, NDMP, VMS
);

-- clients.os has no foreign key: a client may be entered before its operating
-- system is known here. It counts as registered once the system is.
create table clients (
    client_id           integer primary key,   -- 0: the backup server itself
    name                varchar(255) not null unique,
    os                  varchar(32),
    net_prot            varchar(32),
    msg                 text,
    comment             text,
    location            varchar(4),
    accessmode          varchar(10),           -- VKSSH, SSH, CTRL, PROXY, VIRTUAL
    exec                char(1) default '1',   -- 1: takes part in checks of all clients
    access_options      varchar(255),
    user_comment        varchar(255),
    os_user             varchar(255),
    os_password         varchar(255),
    data_mover          varchar(255),          -- host that backs the client up on its behalf
    vm_server_type      varchar(255),
    update_flag         varchar(7),
    user_name           varchar(255),
    password            text,
    hw_platform         text,
    qtc_version         text,
    velka_version       text,
    version_number      bigint,
    package             text,
    installation_date   timestamp(0),
    update_date         timestamp(0),
    update_state        varchar(20),           -- a under way, 0 done, 1 warning, 2 failed
    update_message      text,
    servicepack_number  bigint,
    servicepack_package text,
    servicepack_date    timestamp(0),
    module_versions     text,
    access_state        integer,               -- exit code of the last run
    access_time         timestamp(0),
    access_success      timestamp(0)
);

create table interfaces (
    client_id integer not null references clients on delete cascade,
    i_name    varchar(300) not null,
    i_order   integer not null default 0       -- 0 is tried first
);
create index interfaces_client on interfaces (client_id, i_order);
-- Two runs that register one client at the same moment both find it without an
-- address; the second insert fails, as it should.
create unique index interfaces_name on interfaces (client_id, lower(i_name));
