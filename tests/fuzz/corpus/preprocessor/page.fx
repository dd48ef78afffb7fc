<!DOCTYPE html>
<html><head><title>404</title></head></html>
